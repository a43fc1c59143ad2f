// Cost of building one remote-control packet, per kind and action, next to its floor: the
// work no encoder can avoid (zeroing the same capacity, one performance-counter read, writing
// as many bytes as the packet has). Each BM_Send/<kind> has a BM_Floor/<kind> of the same
// capacity and packet length; their ratio is the encoder's overhead.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "orbperix/remote_event.h"
#include "platform/platform.h"

namespace {

struct Case {
    RemoteCtrlEvent event;
    unsigned char capacity;
};

Case Make(uint32_t type, uint32_t action) {
    Case c;
    std::memset(&c.event, 0, sizeof(c.event));
    c.event.type = type;
    c.event.headerFlags = 0x68;
    c.event.headerTag = 0x11;
    c.capacity = 105;
    RemoteCtrlPayload& p = c.event.payload;
    p.key.action = action;  // every member but zoom starts with its action word
    switch (type) {
        case 0:
            p.touch.pointerCount = 10;
            for (int i = 0; i < 10; ++i) {
                p.touch.pointerIds[i] = static_cast<uint8_t>(i);
                p.touch.x[i] = 100.5 * i;
                p.touch.y[i] = 1920.25 - 10.0 * i;
            }
            break;
        case 1:
            p.key.keyValue1 = 0x41;
            p.key.keyValue2 = 0x1E;
            p.key.keyValue3 = 0x10000;
            break;
        case 2:
            p.zoom.x = 640.0;
            p.zoom.y = 360.0;
            p.zoom.zoomValue = 120;
            break;
        case 3:
            p.scroll.scrollValue = 240;
            break;
        case 6:
            p.mouse.button = 1;
            p.mouse.coords[0] = 100.7;
            p.mouse.coords[1] = 200.2;
            p.mouse.coords[2] = 1920.0;
            p.mouse.coords[3] = 1080.0;
            break;
        case 7:
            c.capacity = static_cast<unsigned char>(489);  // what the input provider passes
            if (action == 0) {
                p.input.content.contentLength = 217;  // the longest text that fits
                std::memset(p.input.content.content, 'x', 217);
            } else {
                p.input.focus.focusFlag = 1;
                p.input.focus.focusValues[0] = 10.0;
                p.input.focus.focusValues[1] = 20.0;
                p.input.focus.focusValues[2] = 300.0;
                p.input.focus.focusValues[3] = 40.0;
            }
            break;
        case 8:
            p.wheel.buttons = 0x05;
            p.wheel.wheelValue = 120;
            p.wheel.x = 500.0;
            p.wheel.y = 600.0;
            break;
        case 9:
            p.virtualKey.x = 10.0;
            p.virtualKey.y = 20.0;
            break;
        case 10:
            c.capacity = static_cast<unsigned char>(491);
            p.message.messageLength = 219;  // the longest message that fits
            p.message.messageWord = 0x0102;
            std::memset(p.message.messageData, 'm', 217);
            break;
        default:
            break;
    }
    return c;
}

LARGE_INTEGER Start() {
    LARGE_INTEGER value;
    value.QuadPart = OrbPerix::platform::PerformanceCounter();
    return value;
}

LARGE_INTEGER Frequency() {
    LARGE_INTEGER value;
    value.QuadPart = OrbPerix::platform::PerformanceFrequency();
    return value;
}

void BM_Send(benchmark::State& state, uint32_t type, uint32_t action) {
    Case c = Make(type, action);
    std::vector<unsigned char> buffer(c.capacity + 4u);
    const LARGE_INTEGER start = Start();
    const LARGE_INTEGER frequency = Frequency();
    RemoteUtil::RemoteEvent* sender = RemoteUtil::RemoteEvent::GetInstance();
    int length = sender->SendRemoteCtrlEvent(&c.event, buffer.data(), c.capacity, start, frequency);
    if (length <= 0) {
        state.SkipWithError("the event does not encode");
        return;
    }
    for (auto _ : state) {
        length = sender->SendRemoteCtrlEvent(&c.event, buffer.data(), c.capacity, start,
                                             frequency);
        benchmark::DoNotOptimize(length);
        benchmark::ClobberMemory();
    }
    state.counters["bytes"] = length;
}

void BM_Floor(benchmark::State& state, uint32_t type, uint32_t action) {
    Case c = Make(type, action);
    std::vector<unsigned char> buffer(c.capacity + 4u);
    const int length = RemoteUtil::RemoteEvent::GetInstance()->SendRemoteCtrlEvent(
        &c.event, buffer.data(), c.capacity, Start(), Frequency());
    if (length <= 0) {
        state.SkipWithError("the event does not encode");
        return;
    }
    const std::vector<unsigned char> packet(buffer.begin(), buffer.begin() + length);
    unsigned char* out = buffer.data();
    const unsigned char* in = packet.data();
    benchmark::DoNotOptimize(in);
    for (auto _ : state) {
        std::memset(out, 0, c.capacity);
        int64_t now = OrbPerix::platform::PerformanceCounter();
        benchmark::DoNotOptimize(now);
        std::memcpy(out, in, static_cast<size_t>(length));
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
    }
    state.counters["bytes"] = length;
}

#define ORBPERIX_BENCH_KIND(name, type, action)              \
    BENCHMARK_CAPTURE(BM_Send, name, type, action);          \
    BENCHMARK_CAPTURE(BM_Floor, name, type, action)

ORBPERIX_BENCH_KIND(touch10_down, 0, 0);
ORBPERIX_BENCH_KIND(touch10_up, 0, 1);
ORBPERIX_BENCH_KIND(touch10_move, 0, 2);
ORBPERIX_BENCH_KIND(key_down, 1, 0);
ORBPERIX_BENCH_KIND(key_up, 1, 1);
ORBPERIX_BENCH_KIND(zoom, 2, 0);
ORBPERIX_BENCH_KIND(scroll_vertical, 3, 0);
ORBPERIX_BENCH_KIND(scroll_horizontal, 3, 1);
ORBPERIX_BENCH_KIND(mouse_down, 6, 0);
ORBPERIX_BENCH_KIND(mouse_up, 6, 1);
ORBPERIX_BENCH_KIND(mouse_move, 6, 2);
ORBPERIX_BENCH_KIND(input_content217, 7, 0);
ORBPERIX_BENCH_KIND(input_focus, 7, 1);
ORBPERIX_BENCH_KIND(wheel_vertical, 8, 0);
ORBPERIX_BENCH_KIND(wheel_horizontal, 8, 1);
ORBPERIX_BENCH_KIND(virtualkey_back, 9, 0);
ORBPERIX_BENCH_KIND(virtualkey_home, 9, 1);
ORBPERIX_BENCH_KIND(virtualkey_recent_app, 9, 2);
ORBPERIX_BENCH_KIND(virtualkey_quick_setting, 9, 3);
ORBPERIX_BENCH_KIND(message_extend219, 10, 0);
ORBPERIX_BENCH_KIND(message_reserved219, 10, 1);

}  // namespace
