// The input provider's remote-control posting: one event, encoded into a packet and written to
// the peer's button channel.
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "capture/capture.h"
#include "log/log.h"
#include "orbperix/remote_event.h"
#include "platform/platform.h"
#include "provider/input_provider.h"
#include "wire/event_kind.h"
#include "remote/framing.h"
#include "util/elapsed.h"
#include "util/result.h"

namespace OrbPerix {

namespace {

constexpr int kMaxPacketLength = 512;
// The encoder may place its 4-byte timestamp up to 4 bytes past the capacity it is told; the
// spare bytes keep that inside the allocation for every kind (the 105-byte buffer is told 105).
constexpr uint32_t kTimestampSpare = 4;

// Only wheel events and mouse presses and moves keep the heartbeat alive; a mouse release does
// not, nor does any other kind.
bool CountsAsInput(const RemoteCtrlEvent& event) {
    if (event.type == event_kind::kWheel) {
        return true;
    }
    return event.type == event_kind::kMouse &&
           (event.payload.mouse.action == 0 || event.payload.mouse.action == 2);
}

}  // namespace

uint32_t InputProvider::SendBufferSize(uint32_t type) noexcept {
    switch (type) {
        case event_kind::kTextInput: return 489;
        case event_kind::kMessage: return 491;
        default: return 105;
    }
}

unsigned char InputProvider::EncoderCapacity(uint32_t type) noexcept {
    // The encoder's capacity is 8 bits wide: 489 and 491 arrive as 233 and 235. Kept so on
    // purpose; the peer expects packets no longer than that.
    return static_cast<unsigned char>(SendBufferSize(type) & 0xFFu);
}

namespace {
constexpr const char* kPostScope = "OrbPerix::InputProvider::PostRemoteCtrlEvent";
}  // namespace

template <typename Write>
int InputProvider::PostEncoded(std::string_view deviceId, RemoteCtrlEvent* event, Write&& write) {
    if (!InputKind::Sessions().HasHandle(deviceId)) {
        log::Trace(LOG_MESSAGE_ERROR, kPostScope,
                   "serviceHandler is null, Please Connect device first.");
        return kWrongState;
    }
    // The button write below is recorded as this event's packet.
    capture::PostScope post;
    const uint32_t size = SendBufferSize(event->type);
    const std::unique_ptr<uint8_t[]> owned(new (std::nothrow) uint8_t[size + kTimestampSpare]);
    uint8_t* const buffer = owned.get();
    if (buffer == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kPostScope, "sendRemoteCtrlEvent new mSendBuffer error");
        return kNoMemory;
    }
    std::memset(buffer, 0, size + kTimestampSpare);

    InputState& g = InputGlobals();
    LARGE_INTEGER start{};
    start.QuadPart = g.clockStart.load(std::memory_order_relaxed);
    LARGE_INTEGER frequency{};
    frequency.QuadPart = g.clockFrequency.load(std::memory_order_relaxed);
    RemoteUtil::RemoteEvent* sender = RemoteUtil::RemoteEvent::GetInstance();
    if (sender == nullptr) {
        // Out of memory for the sender ("new RemoteEvent failed" is logged by GetInstance;
        // a later event tries again): nothing was encoded, so nothing is written.
        return kNoMemory;
    }
    // The encoder's own counter reading stamps the input time (no second read).
    TimeStampReading reading;
    const int length =
        sender->SendRemoteCtrlEvent(event, buffer, EncoderCapacity(event->type), start, frequency);
    if (length > kMaxPacketLength) {
        log::Trace(LOG_MESSAGE_ERROR, kPostScope,
                   "remoteController ConstructRemoteCtrlPacke packetLength Error");
        return kInvalidArgument;
    }
    // A negative length is passed on in its bits; the engine's write rejects it.
    const int written = write(buffer, static_cast<uint32_t>(length));
    if (written == 0 && CountsAsInput(*event)) {
        // Stored only when it changed (once a millisecond at most), so that threads posting at
        // once do not all write the line it lives on. A packet without a timestamp (a failed
        // body) reads the counter here.
        const int64_t counter =
            reading.Taken() ? reading.Counter() : platform::PerformanceCounter();
        const uint32_t now = static_cast<uint32_t>(
            ElapsedMilliseconds(counter, start.QuadPart, frequency.QuadPart));
        if (g.lastInputTime.load(std::memory_order_relaxed) != now) {
            g.lastInputTime.store(now, std::memory_order_relaxed);
        }
    }
    return written;
}

int InputProvider::PostRemoteCtrlEvent(ServiceInfo* service, RemoteCtrlEvent* event) {
    if (service == nullptr || event == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kPostScope,
                   "PostRemoteCtrlEvent the parameter service or event is null.");
        return kInvalidArgument;
    }
    // Through the virtual write, so that a derived class that overrides it gets the packet.
    return PostEncoded(service->deviceId, event, [this, service](uint8_t* data, uint32_t len) {
        return ButtonWriteStreamBuffer(service, data, len);
    });
}

int InputProvider::PostRemoteCtrlEventTo(std::string_view deviceId, std::string_view serviceId,
                                         RemoteCtrlEvent* event) {
    if (event == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kPostScope,
                   "PostRemoteCtrlEvent the parameter service or event is null.");
        return kInvalidArgument;
    }
    return PostEncoded(deviceId, event, [deviceId, serviceId](uint8_t* data, uint32_t len) {
        return WriteButton(deviceId, serviceId, data, len);
    });
}

}  // namespace OrbPerix
