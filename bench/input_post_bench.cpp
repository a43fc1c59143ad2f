// The input provider's posting path against its floor, and the heartbeat's idle cost.
//
// BM_PostMouse: PostRemoteCtrlEvent of a mouse move through an engine whose write does nothing.
// BM_PostMouseFloor: what any post must do: encode the same event into a 105-byte buffer that
// is allocated and freed once. Goal: BM_PostMouse within 1.3x of the floor.
// BM_HeartbeatIdleCpu: process CPU time over 10 s with an initialised provider and no input
// (the heartbeat thread polls every 10 ms); reported as the counter cpu_ms.
//
// The engine here is a table of trivial functions in this binary, so that only the library's
// own work is measured.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <ctime>
#include <new>
#include <thread>

#include "orbperix/remote_event.h"
#include "engine/engine_gate.h"
#include "platform/platform.h"
#include "provider/input_provider.h"

namespace {

int g_handleToken = 0;
void* FakeCreate(const PERIXInfo*) { return &g_handleToken; }
int FakeListener(void*, const PerixEngineListener*) { return 0; }
int FakeStart(void*, const PERIXInfo*) { return 0; }
int FakeRelease(void*, void*, void*) { return 0; }
int FakeButtonRegister(const PerixButtonCallback*) { return 0; }
int FakeButton(const PerixButtonIdentity*) { return 0; }
int FakeWrite(const PerixButtonIdentity* identity, const PerixDataBuffer* buffer) {
    benchmark::DoNotOptimize(identity);
    benchmark::DoNotOptimize(buffer);
    return 0;
}

struct Rig {
    OrbPERIXHandler main{};
    ButtonHandlerSource button{};
    Rig() {
        main.PERIXCreateServiceHandle = &FakeCreate;
        main.PERIXRegisterListener = &FakeListener;
        main.PERIXStartService = &FakeStart;
        main.PERIXReleaseServiceHandle = &FakeRelease;
        button.RegisterCallback = &FakeButtonRegister;
        button.ButtonOpen = &FakeButton;
        button.ButtonClose = &FakeButton;
        button.ButtonWriteStreamBuffer = &FakeWrite;
        // A live engine load made of the fakes: the gate lets calls through as with a real one.
        OrbPerix::engine::Reserve();
        load = &OrbPerix::engine::Publish(main, button, AudioHandlerSource{}, RefreshHandlerSource{});
    }
    const OrbPerix::EngineLoad* load = nullptr;
};

RemoteCtrlEvent MouseMove() {
    RemoteCtrlEvent event;
    std::memset(&event, 0, sizeof(event));
    event.type = 6;
    event.payload.mouse.action = 2;
    event.payload.mouse.button = 1;
    event.payload.mouse.coords[0] = 100;
    event.payload.mouse.coords[1] = 200;
    return event;
}

// state.range(0): the mouse action (2 move counts as input and reads the clock; 1 release does
// not), to separate the input-time cost from the rest.
void BM_PostMouse(benchmark::State& state) {
    Rig rig;
    OrbPerix::InputProvider provider(*rig.load);
    provider.Init();
    PERIXInfo info;
    std::memset(&info, 0, sizeof(info));
    std::strcpy(info.peerDeviceId, "bench-peer");
    info.connectType = 1;
    ProviderListener listener{};
    provider.RegisterPERIXListener(&info, &listener);
    provider.ConnectDevice(&info);
    ServiceInfo service{"bench-peer", "button-0", 6};
    RemoteCtrlEvent event = MouseMove();
    event.payload.mouse.action = static_cast<uint32_t>(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(provider.PostRemoteCtrlEvent(&service, &event));
    }
    provider.DisconnectDevice(&info);
    provider.DeInit();
}
BENCHMARK(BM_PostMouse)->Arg(2)->Arg(1);

void BM_PostMouseFloor(benchmark::State& state) {
    RemoteCtrlEvent event = MouseMove();
    LARGE_INTEGER start{};
    start.QuadPart = OrbPerix::platform::PerformanceCounter();
    LARGE_INTEGER frequency{};
    frequency.QuadPart = OrbPerix::platform::PerformanceFrequency();
    for (auto _ : state) {
        uint8_t* buffer = new (std::nothrow) uint8_t[105 + 4];
        std::memset(buffer, 0, 105 + 4);
        benchmark::DoNotOptimize(RemoteUtil::RemoteEvent::GetInstance()->SendRemoteCtrlEvent(
            &event, buffer, 105, start, frequency));
        benchmark::ClobberMemory();
        delete[] buffer;
    }
}
BENCHMARK(BM_PostMouseFloor);

// The engine gate's cost per call: a button write through the gate against the same write
// called directly (both into the fake engine).
void BM_GatedEngineCall(benchmark::State& state) {
    Rig rig;
    const PerixButtonIdentity identity{"peer", 4, "button-0", 8};
    uint8_t bytes[16] = {};
    const PerixDataBuffer buffer{bytes, sizeof(bytes)};
    for (auto _ : state) {
        benchmark::DoNotOptimize(OrbPerix::engine::Call(
            *rig.load, rig.load->button.ButtonWriteStreamBuffer, &identity, &buffer));
    }
}
BENCHMARK(BM_GatedEngineCall);

void BM_DirectEngineCall(benchmark::State& state) {
    Rig rig;
    const PerixButtonIdentity identity{"peer", 4, "button-0", 8};
    uint8_t bytes[16] = {};
    const PerixDataBuffer buffer{bytes, sizeof(bytes)};
    auto* volatile write = rig.load->button.ButtonWriteStreamBuffer;  // not inlined away
    for (auto _ : state) {
        benchmark::DoNotOptimize(write(&identity, &buffer));
    }
}
BENCHMARK(BM_DirectEngineCall);

double ProcessCpuMs() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

void BM_HeartbeatIdleCpu(benchmark::State& state) {
    Rig rig;
    for (auto _ : state) {
        OrbPerix::InputProvider provider(*rig.load);
        provider.Init();
        const double before = ProcessCpuMs();
        std::this_thread::sleep_for(std::chrono::seconds(10));
        const double used = ProcessCpuMs() - before;
        provider.DeInit();
        state.counters["cpu_ms"] = used;
    }
}
BENCHMARK(BM_HeartbeatIdleCpu)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
