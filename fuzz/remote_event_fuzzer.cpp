// Fuzz target of the remote-control sender.
//
// Each input becomes one event (any type, action, counts, lengths, flags, special doubles),
// a capacity from 0 to 255 and a time base, and is sent through
// RemoteEvent::SendRemoteCtrlEvent into a buffer followed by guard bytes. The target aborts
// when:
//   - anything is written at or beyond capacity + 4, or a byte in front of the packet end is
//     left in a state the framing does not allow;
//   - the result disagrees with an independent model of which events can be encoded, or a
//     successful packet has an odd length;
//   - a successful packet does not decode, or decodes to anything but the event's fields after
//     the wire conversions;
//   - a failure writes no log line, or a success writes one.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

#include "SinkTestApi.h"
#include "orbperix/remote_event.h"
#include "packet_decoder.h"
#include "platform/platform.h"

namespace {

using OrbPerix::packet::DecodedPacket;

constexpr uint8_t kGuard = 0xA5;
constexpr size_t kGuardBytes = 64;
constexpr int64_t kMilliseconds = 1234;
constexpr int64_t kFrequency = 500'000'000'000;  // see the unit tests' TimeBaseAt

[[noreturn]] void Violation(const char* what, const RemoteCtrlEvent& event, unsigned capacity,
                            int result) {
    std::fprintf(stderr, "remote_event_fuzzer: %s (type %u, capacity %u, result %d)\n", what,
                 event.type, capacity, result);
    std::abort();
}

class Input {
public:
    Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}

    uint8_t Byte() { return offset_ < size_ ? data_[offset_++] : 0; }
    uint32_t Word() {
        uint32_t value = 0;
        for (int i = 0; i < 4; ++i) value = (value << 8) | Byte();
        return value;
    }
    uint64_t Quad() { return (static_cast<uint64_t>(Word()) << 32) | Word(); }
    // Copies what is left (at most `size` bytes) to `out`; the rest of `out` stays as it is.
    void Rest(void* out, size_t size) {
        const size_t n = size_ - offset_ < size ? size_ - offset_ : size;
        if (n != 0) std::memcpy(out, data_ + offset_, n);
        offset_ += n;
    }

private:
    const uint8_t* data_;
    size_t size_;
    size_t offset_ = 0;
};

const double kSpecials[] = {
    0.0,
    -0.0,
    100.7,
    -1.5,
    70000.0,
    65535.0,
    65536.0,
    -32768.0,
    2147483647.9,
    2147483648.0,
    -2147483648.9,
    -2147483649.0,
    4294967296.0,
    1e300,
    -1e300,
    std::numeric_limits<double>::infinity(),
    -std::numeric_limits<double>::infinity(),
    std::numeric_limits<double>::quiet_NaN(),
    std::numeric_limits<double>::denorm_min(),
    0.5,
};
constexpr size_t kSpecialCount = sizeof(kSpecials) / sizeof(kSpecials[0]);

unsigned char* PayloadBytes(RemoteCtrlEvent& event) {
    return reinterpret_cast<unsigned char*>(&event.payload);
}

// The wire value of a double, derived independently of the library: trunc, range, low 16 bits.
uint16_t Wire(double value) {
    if (!std::isfinite(value)) return 0;
    const double whole = std::trunc(value);
    if (whole < -2147483648.0 || whole > 2147483647.0) return 0;
    return static_cast<uint16_t>(static_cast<uint64_t>(static_cast<int64_t>(whole)) & 0xFFFFu);
}

template <typename T>
T PayloadAt(const RemoteCtrlEvent& event, size_t offset) {
    T value{};
    if (offset + sizeof(T) <= sizeof(event.payload)) {
        std::memcpy(&value, reinterpret_cast<const unsigned char*>(&event.payload) + offset,
                    sizeof(T));
    }
    return value;
}

// Body bytes the event's kind needs, or -1 when it cannot be encoded whatever the room.
int BodySize(const RemoteCtrlEvent& event) {
    const RemoteCtrlPayload& p = event.payload;
    const uint32_t action = p.key.action;  // every member starts with its action word
    switch (event.type) {
        case 0: return action <= 2 ? 9 * p.touch.pointerCount + 4 : -1;
        case 1: return action <= 1 ? 12 : -1;
        case 2: return 9;
        case 3: return action <= 1 ? 5 : -1;
        case 6: return action <= 2 ? 12 : -1;
        case 7:
            if (action == 1) return 12;
            if (action != 0) return -1;
            return p.input.content.contentLength >= 1 && p.input.content.contentLength <= 472
                       ? p.input.content.contentLength + 5
                       : -1;
        case 8: return action <= 1 ? 10 : -1;
        case 9: return action <= 3 ? 7 : -1;
        case 10:
            return action <= 1 && p.message.messageLength >= 3 && p.message.messageLength <= 472
                       ? p.message.messageLength + 5
                       : -1;
        default: return -1;  // rotate, the reserved kind, and everything above 10
    }
}

// The packet length the framing must produce, or -1.
int ExpectedLength(const RemoteCtrlEvent& event, unsigned capacity) {
    const int body = BodySize(event);
    const int room = capacity > 10 ? static_cast<int>(capacity) - 10 : 0;
    if (body < 0 || body >= room) return -1;  // encoders need room > body
    const int stamped = body + 4;
    if (stamped % 2 == 0) return 10 + stamped;
    return stamped < room ? 10 + stamped + 1 : -1;  // the padding byte must lie inside
}

uint8_t ExpectedClass(uint32_t type) {
    switch (type) {
        case 7: return 2;
        case 9: return 3;
        case 10: return 4;
        default: return 0;
    }
}

void CheckFields(const RemoteCtrlEvent& event, const DecodedPacket& packet, unsigned capacity,
                 int result) {
    auto require = [&](bool ok, const char* what) {
        if (!ok) Violation(what, event, capacity, result);
    };
    const RemoteCtrlPayload& p = event.payload;
    require(packet.type == event.type, "decoded type");
    require(event.type == 2 || packet.action == p.key.action, "decoded action");
    require(packet.headerFlags == (event.headerFlags & 0x68u), "header flags");
    require(packet.tag == static_cast<uint8_t>(event.headerTag), "header tag");
    require(packet.packetClass == ExpectedClass(event.type), "header class");
    switch (event.type) {
        case 0: {
            require(packet.pointers.size() == p.touch.pointerCount, "pointer count");
            for (size_t i = 0; i < packet.pointers.size(); ++i) {
                // Pointers past the tenth continue through the payload's bytes.
                const uint8_t id = PayloadAt<uint8_t>(event, offsetof(RemoteTouchEvent, pointerIds) + i);
                const double x = PayloadAt<double>(event, offsetof(RemoteTouchEvent, x) + 8 * i);
                const double y = PayloadAt<double>(event, offsetof(RemoteTouchEvent, y) + 8 * i);
                require(packet.pointers[i].id == id, "pointer id");
                require(packet.pointers[i].x == Wire(x), "pointer x");
                require(packet.pointers[i].y == Wire(y), "pointer y");
            }
            break;
        }
        case 1:
            require(packet.keyValue1 == p.key.keyValue1 && packet.keyValue2 == p.key.keyValue2 &&
                        packet.keyValue3 == p.key.keyValue3,
                    "key values");
            break;
        case 2:
            require(packet.x == Wire(p.zoom.x) && packet.y == Wire(p.zoom.y) &&
                        packet.zoomValue == p.zoom.zoomValue,
                    "zoom fields");
            break;
        case 3:
            require(packet.scrollValue == p.scroll.scrollValue, "scroll value");
            break;
        case 6:
            require(packet.button == p.mouse.button, "mouse button");
            for (size_t i = 0; i < 4; ++i) {
                require(packet.values[i] == Wire(p.mouse.coords[i]), "mouse coords");
            }
            break;
        case 7:
            if (p.input.action == 0) {
                require(packet.data.size() == p.input.content.contentLength &&
                            std::memcmp(packet.data.data(), p.input.content.content,
                                        packet.data.size()) == 0,
                        "text content");
            } else {
                require(packet.focusFlag == p.input.focus.focusFlag, "focus flag");
                for (size_t i = 0; i < 4; ++i) {
                    require(packet.values[i] == Wire(p.input.focus.focusValues[i]),
                            "focus values");
                }
            }
            break;
        case 8:
            require(packet.buttons == (p.wheel.buttons & 0x07u) &&
                        packet.wheelValue == p.wheel.wheelValue && packet.x == Wire(p.wheel.x) &&
                        packet.y == Wire(p.wheel.y),
                    "wheel fields");
            break;
        case 9:
            require(packet.x == Wire(p.virtualKey.x) && packet.y == Wire(p.virtualKey.y),
                    "virtual key fields");
            break;
        case 10:
            require(packet.messageWord == p.message.messageWord &&
                        packet.data.size() + 2 == p.message.messageLength &&
                        std::memcmp(packet.data.data(), p.message.messageData,
                                    packet.data.size()) == 0,
                    "message fields");
            break;
        default:
            require(false, "a packet for a kind that has none");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const unsigned capacity = input.Byte();
    const uint8_t typeSelector = input.Byte();
    const uint8_t shape = input.Byte();
    const uint8_t timeMode = input.Byte();

    RemoteCtrlEvent event;
    std::memset(&event, 0, sizeof(event));
    event.type = typeSelector < 232 ? typeSelector % 11u : input.Word();
    event.headerFlags = input.Word();
    event.headerTag = input.Word();
    event.reserved = input.Word();
    LARGE_INTEGER start{};
    LARGE_INTEGER frequency{};
    if (timeMode < 16) {
        // Any counter values at all, zero and extreme frequencies included.
        start.QuadPart = static_cast<int64_t>(input.Quad());
        frequency.QuadPart = static_cast<int64_t>(input.Quad());
    } else {
        frequency.QuadPart = kFrequency;
        start.QuadPart = OrbPerix::platform::PerformanceCounter() -
                         kMilliseconds * (kFrequency / 1000);
    }
    input.Rest(&event.payload, sizeof(event.payload));

    unsigned char* raw = PayloadBytes(event);
    if ((shape & 0x01) != 0) {
        // Doubles from the special list: every 8-byte word behind the action word (zoom has
        // none, its x comes first).
        for (size_t offset = event.type == 2 ? 0 : 8; offset + 8 <= sizeof(event.payload); offset += 8) {
            const double value = kSpecials[raw[offset] % kSpecialCount];
            std::memcpy(raw + offset, &value, sizeof(value));
        }
    }
    if ((shape & 0x02) != 0) {
        event.payload.key.action %= 5;  // mostly valid actions
    }
    if ((shape & 0x04) != 0) {
        // Counts and lengths around their limits instead of anywhere in their range.
        switch (event.type) {
            case 0:
                event.payload.touch.pointerCount =
                    static_cast<uint8_t>(event.payload.touch.pointerCount % 30);
                break;
            case 7:
                event.payload.input.content.contentLength =
                    static_cast<uint16_t>(event.payload.input.content.contentLength % 480);
                break;
            case 10:
                event.payload.message.messageLength =
                    static_cast<uint16_t>(event.payload.message.messageLength % 480);
                break;
            default:
                break;
        }
    }

    std::vector<uint8_t> buffer(capacity + 4 + kGuardBytes, kGuard);
    tracekit_test_clear();
    RemoteUtil::RemoteEvent* sender = RemoteUtil::RemoteEvent::GetInstance();
    if (sender == nullptr) Violation("no sender", event, capacity, 0);
    const int result = sender->SendRemoteCtrlEvent(&event, buffer.data(),
                                                   static_cast<unsigned char>(capacity), start,
                                                   frequency);
    const int logLines = tracekit_test_line_count();
    tracekit_test_clear();
    static const bool verbose = std::getenv("ORBPERIX_FUZZ_VERBOSE") != nullptr;
    if (verbose) {
        std::fprintf(stderr, "type %u capacity %u -> %d\n", event.type, capacity, result);
    }

    for (size_t at = capacity + 4; at < buffer.size(); ++at) {
        if (buffer[at] != kGuard) Violation("write beyond capacity + 4", event, capacity, result);
    }
    const int expected = ExpectedLength(event, capacity);
    if (result != expected) Violation("result differs from the model", event, capacity, result);
    if (result == -1) {
        if (logLines == 0) Violation("failure without a log line", event, capacity, result);
        return 0;
    }
    if (result % 2 != 0) Violation("odd packet length", event, capacity, result);
    if (logLines != 0) Violation("success with a log line", event, capacity, result);
    // Behind the packet, the capacity holds zeros and the 4 bytes after it were not touched.
    for (size_t at = static_cast<size_t>(result); at < capacity + 4u; ++at) {
        if (buffer[at] != (at < capacity ? 0 : kGuard)) {
            Violation("bytes behind the packet changed", event, capacity, result);
        }
    }

    DecodedPacket packet;
    std::string reason;
    if (!OrbPerix::packet::DecodePacket(buffer.data(), static_cast<size_t>(result), &packet,
                                        &reason)) {
        std::fprintf(stderr, "decoder: %s\n", reason.c_str());
        Violation("packet does not decode", event, capacity, result);
    }
    CheckFields(event, packet, capacity, result);
    if (timeMode >= 16 && (packet.timestampMs < kMilliseconds || packet.timestampMs > kMilliseconds + 60000)) {
        Violation("timestamp", event, capacity, result);
    }
    return 0;
}
