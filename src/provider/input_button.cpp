// The input provider's button channel: open, close, write, the engine's button notification,
// and the heartbeat thread that keeps the channel alive while input is recent.
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "capture/traced_call.h"
#include "engine/engine_gate.h"
#include "log/log.h"
#include "platform/platform.h"
#include "provider/delivery.h"
#include "provider/input_provider.h"
#include "provider/owned_bytes.h"
#include "util/result.h"

namespace OrbPerix {

namespace {

constexpr uint32_t kButtonServiceType = 6;
constexpr uint32_t kHeartbeatSize = 11;
// A heartbeat goes out from 50 ms to 300000 ms after the last counted input.
constexpr uint32_t kHeartbeatDelayMs = 50;
constexpr uint32_t kHeartbeatWindowMs = 300000;
constexpr uint32_t kHeartbeatPeriodMs = 40;
constexpr uint32_t kIdlePollMs = 10;

// The engine's identity of a button channel; points into `deviceId` and `serviceId`, which
// must outlive the call that receives it.
PerixButtonIdentity Identity(const std::string& deviceId, const std::string& serviceId) {
    return PerixButtonIdentity{deviceId.c_str(), static_cast<uint32_t>(deviceId.size()),
                               serviceId.c_str(), static_cast<uint32_t>(serviceId.size())};
}

// The load whose button table the kind calls now.
const EngineLoad& ButtonLoad() noexcept {
    return *InputGlobals().buttonLoad.load(std::memory_order_acquire);
}

}  // namespace

int InputProvider::OpenButton(ServiceInfo* service, void* /*reserved*/) {
    static const char* const kScope = "OrbPerix::InputProvider::OpenButton";
    if (service == nullptr) {
        return kInvalidArgument;
    }
    if (service->serviceType != kButtonServiceType) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "OpenButton failed, type Invalid: ",
                   service->serviceType);
        return kInvalidArgument;
    }
    // The heartbeat later writes to the service stored here.
    bool noMemory = false;
    if (!InputKind::Sessions().SetServiceId(service->deviceId, service->serviceId, &noMemory)) {
        if (noMemory) {
            log::Trace(LOG_MESSAGE_ERROR, kScope, "OpenButton failed, no memory for the service id");
            return kNoMemory;
        }
        log::Trace(LOG_MESSAGE_ERROR, kScope, "OpenButton failed, sessionInfo is null.");
        return kInvalidArgument;
    }
    const PerixButtonIdentity identity = Identity(service->deviceId, service->serviceId);
    const EngineLoad& load = ButtonLoad();
    const int opened = engine::Call(load, load.button.ButtonOpen, &identity);
    if (opened != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "ButtonOpen failed with ret=", opened);
        return opened;
    }
    // buttonOpened waits for the peer's notification.
    return 0;
}

int InputProvider::CloseButton(ServiceInfo* service, void* /*reserved1*/, void* /*reserved2*/) {
    static const char* const kScope = "OrbPerix::InputProvider::CloseButton";
    if (service == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "CloseButton service is null");
        return kInvalidArgument;
    }
    if (service->serviceType != kButtonServiceType) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "CloseButton failed, type Invalid: ",
                   service->serviceType);
        return kInvalidArgument;
    }
    const PerixButtonIdentity identity = Identity(service->deviceId, service->serviceId);
    const EngineLoad& load = ButtonLoad();
    const int closed = engine::Call(load, load.button.ButtonClose, &identity);
    if (closed != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "ButtonClose failed with ret=", closed);
        return closed;
    }
    InputGlobals().buttonOpened.store(false, std::memory_order_relaxed);
    return 0;
}

int InputProvider::ButtonWriteStreamBuffer(ServiceInfo* service, uint8_t* data, uint32_t len) {
    if (service == nullptr) {
        return kInvalidArgument;
    }
    return WriteButton(service->deviceId, service->serviceId, data, len);
}

int InputProvider::WriteButton(std::string_view deviceId, std::string_view serviceId,
                               uint8_t* data, uint32_t len) {
    const PerixButtonIdentity identity{deviceId.data(), static_cast<uint32_t>(deviceId.size()),
                                       serviceId.data(), static_cast<uint32_t>(serviceId.size())};
    const PerixDataBuffer buffer{data, len};
    const EngineLoad& load = ButtonLoad();
    const int written = engine::Call(load, load.button.ButtonWriteStreamBuffer, &identity, &buffer);
    if (written != 0) {
        log::Trace(LOG_MESSAGE_ERROR, "OrbPerix::InputProvider::ButtonWriteStreamBuffer",
                   "ButtonWriteStreamBuffer failed with ret=", written);
    }
    return written;
}

int InputProvider::ButtonNotify(const void* identityRecord, const void* notifyRecord) noexcept {
    static const char* const kScope = "OrbPerix::InputProvider::ButtonNotify";
    static const char* const kEvent = "On ButtonNotify";
    engine::CallbackScope inCallback;
    const auto* identity = static_cast<const PerixButtonIdentity*>(identityRecord);
    const auto* notify = static_cast<const PerixButtonNotify*>(notifyRecord);
    if (capture::On() && identity != nullptr && notify != nullptr) {
        capture::Notification({kEvent, nullptr, identity->deviceId, identity->deviceIdLen,
                               identity->serviceId, identity->serviceIdLen, notify->word0,
                               capture::PayloadKind::kButtonData, notify->dataExtend,
                               notify->dataLen});
    }
    SessionFacts facts;
    // A missing record names no session, so it is reported as a missing listener.
    if (identity == nullptr || notify == nullptr || identity->deviceId == nullptr ||
        identity->deviceIdLen > kMaxEngineTextLength ||
        !InputKind::Sessions().Lookup(std::string_view(identity->deviceId, identity->deviceIdLen),
                                      &facts) ||
        facts.listener.onButtonNotify == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "On ButtonNotify, Listen function is null");
        return kUnavailable;
    }
    // The host is promised a null dataExtend exactly when dataLen is 0.
    if (!CheckEngineText(kScope, kEvent, "serviceId", identity->serviceId,
                         identity->serviceIdLen) ||
        !CheckEngineBytes(kScope, kEvent, "dataExtend", notify->dataExtend, notify->dataLen,
                          kMaxEnginePayloadLength)) {
        return kMalformedRecord;
    }
    OwnedBytes data;
    if (notify->dataLen > 0) {
        data = CopyBytes(notify->dataExtend, notify->dataLen);
        if (data.noMemory) {
            log::Trace(LOG_MESSAGE_ERROR, kScope,
                       "On ButtonNotify, new dataExtend failed: , dataLen: ", notify->dataLen);
            return kUnavailable;
        }
        if (!data) {
            log::Trace(LOG_MESSAGE_ERROR, kScope, "ButtonNotify, copy data failed: ",
                       data.copyResult);
            return data.copyResult;
        }
    }
    ButtonNotifyInfo info{notify->word0, notify->word1, notify->dataLen, data.bytes.get()};
    int result = 0;
    try {
        ServiceInfo service{std::string(identity->deviceId, identity->deviceIdLen),
                            std::string(EngineText(identity->serviceId, identity->serviceIdLen)),
                            kButtonServiceType};
        if (!CallListener(kScope, kEvent, facts.route,
                          [&] { facts.listener.onButtonNotify(&service, &info); })) {
            result = kListenerFailed;
        }
    } catch (const std::bad_alloc&) {
        LogNoMemory(kScope, kEvent);
        result = -13;
    }
    // The peer's report stands even when the host's listener failed.
    if (notify->word0 == 1 && notify->word1 == 0) {
        InputGlobals().buttonOpened.store(true, std::memory_order_relaxed);
    }
    return result;
}

void InputProvider::SendButtonHeart(uint8_t* buffer) {
    static const char* const kScope = "OrbPerix::InputProvider::SendButtonHeart";
    std::string deviceId;
    std::string serviceId;
    if (!InputKind::Sessions().FirstWithService(&deviceId, &serviceId)) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "SendButtonHeart: sessionInfo is null");
        return;
    }
    const PerixButtonIdentity identity = Identity(deviceId, serviceId);
    const PerixDataBuffer packet{buffer, kHeartbeatSize};
    const EngineLoad& load = ButtonLoad();
    // Once the kind's engine load is gone the heartbeat falls silent: no write, no line.
    engine::EnginePass pass(load);
    if (!pass || load.button.ButtonWriteStreamBuffer == nullptr) {
        return;
    }
    const int written =
        capture::On() ? capture::TracedCall(capture::PayloadKind::kHeartbeat, load,
                                            load.button.ButtonWriteStreamBuffer, &identity,
                                            &packet)
                      : load.button.ButtonWriteStreamBuffer(&identity, &packet);
    if (written != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "SendButtonHeart failed with ret=", written);
    }
}

void InputProvider::ButtonHeart(std::shared_ptr<HeartbeatControl> control) {
    InputState& g = InputGlobals();
    const std::unique_ptr<uint8_t[]> owned(new (std::nothrow) uint8_t[kHeartbeatSize]);
    uint8_t* const buffer = owned.get();
    if (buffer == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, "OrbPerix::InputProvider::ButtonHeart",
                   "ButtonHeart failed: new buttonDataBuffer error");
        return;
    }
    // The heartbeat packet: ten zero bytes and 0xFF.
    std::memset(buffer, 0, kHeartbeatSize);
    buffer[kHeartbeatSize - 1] = 0xFF;

    // Init sets heartbeatRunning right after the launch and then releases this thread, so the
    // one check below sees Init's value rather than racing it.
    while (!control->released.load(std::memory_order_acquire)) {
        std::this_thread::yield();
    }
    if (!g.heartbeatRunning.load(std::memory_order_relaxed)) {
        return;
    }
    while (g.heartbeatRunning.load(std::memory_order_relaxed) &&
           !control->stop.load(std::memory_order_relaxed)) {
        const uint32_t last = g.lastInputTime.load(std::memory_order_relaxed);
        if (g.buttonOpened.load(std::memory_order_relaxed) && last != 0 &&
            engine::IsLive(ButtonLoad())) {
            const uint32_t age = NowMilliseconds() - last;
            // One unsigned comparison covers both bounds: ages below 50 ms wrap to large values.
            if (age - kHeartbeatDelayMs <= kHeartbeatWindowMs - kHeartbeatDelayMs) {
                SendButtonHeart(buffer);
                platform::SleepMilliseconds(kHeartbeatPeriodMs);
                continue;
            }
        }
        // Idle, too early or too late: poll again shortly (never spin).
        platform::SleepMilliseconds(kIdlePollMs);
    }
}

}  // namespace OrbPerix
