#include "provider/provider_common.h"

#include <new>
#include <string>
#include <utility>

#include "log/log.h"
#include "capture/capture.h"
#include "engine/engine_gate.h"
#include "platform/platform.h"
#include "provider/delivery.h"
#include "provider/owned_bytes.h"
#include "provider/session_store.h"
#include "util/result.h"

namespace OrbPerix {

int CheckPerixInfo(const PERIXInfo* deviceInfo) {
    static const char* const kScope = "OrbPerix::BaseProvider::CheckPerixInfoInner";
    if (deviceInfo == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "Invalid para: deviceInfo is null");
        return kInvalidArgument;
    }
    // The identifier arrays are inline, so for a non-null record they always exist; their
    // lengths and contents are left to the engine on purpose (an empty id passes).
    if (deviceInfo->serverPort < 0 || deviceInfo->connectType == 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope,
                   "Invalid para: serverPort is invalid or connectType is invalid");
        return kInvalidArgument;
    }
    return 0;
}

void ForwardDeviceChange(SessionStore& sessions, void* handle,
                         const PerixDeviceChangeNotify* notify) noexcept {
    static const char* const kScope = "OrbPerix::BaseProvider::DeviceChange";
    static const char* const kEvent = "On DeviceChange";
    engine::CallbackScope inCallback;
    if (notify == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "On DeviceChange, notify is null");
        return;
    }
    if (capture::On()) {
        capture::Notification({kEvent, handle, notify->deviceId, notify->deviceIdLen, nullptr, 0,
                               notify->word0, capture::PayloadKind::kNone, nullptr, 0});
    }
    SessionFacts facts;
    if (!sessions.LookupByHandle(handle, &facts, nullptr) ||
        facts.listener.onDeviceChange == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "On DeviceChange, Listen function is null");
        return;
    }
    if (!CheckEngineText(kScope, kEvent, "deviceId", notify->deviceId, notify->deviceIdLen)) {
        return;
    }
    try {
        DeviceChangeInfo info{std::string(EngineText(notify->deviceId, notify->deviceIdLen)),
                              notify->word0, notify->word1};
        CallListener(kScope, kEvent, facts.route,
                     [&] { facts.listener.onDeviceChange(&info); });
    } catch (const std::bad_alloc&) {
        LogNoMemory(kScope, kEvent);
    }
}

void ForwardServiceChange(SessionStore& sessions, void* handle,
                          const PerixServiceChangeNotify* notify) noexcept {
    static const char* const kScope = "OrbPerix::BaseProvider::DeviceServiceChange";
    static const char* const kEvent = "On DeviceServiceChange";
    engine::CallbackScope inCallback;
    if (notify == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "On DeviceServiceChange, notify is null");
        return;
    }
    if (capture::On()) {
        capture::Notification({kEvent, handle, notify->deviceId, notify->deviceIdLen,
                               notify->serviceId, notify->serviceIdLen, notify->word0,
                               capture::PayloadKind::kNone, nullptr, 0});
    }
    SessionFacts facts;
    if (!sessions.LookupByHandle(handle, &facts, nullptr) ||
        facts.listener.onServiceChange == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "On DeviceServiceChange, Listen function is null");
        return;
    }
    if (!CheckEngineText(kScope, kEvent, "deviceId", notify->deviceId, notify->deviceIdLen) ||
        !CheckEngineText(kScope, kEvent, "serviceId", notify->serviceId, notify->serviceIdLen)) {
        return;
    }
    try {
        ServiceChangeInfo info{std::string(EngineText(notify->deviceId, notify->deviceIdLen)),
                               std::string(EngineText(notify->serviceId, notify->serviceIdLen)),
                               notify->word0, notify->word1, notify->word2};
        CallListener(kScope, kEvent, facts.route,
                     [&] { facts.listener.onServiceChange(&info); });
    } catch (const std::bad_alloc&) {
        LogNoMemory(kScope, kEvent);
    }
}

void ForwardDataReceive(SessionStore& sessions, void* handle,
                        const BinaryData* data) noexcept {
    static const char* const kScope = "OrbPerix::BaseProvider::DataReceive";
    static const char* const kEvent = "On DataReceive";
    engine::CallbackScope inCallback;
    if (data == nullptr || data->data == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "On DataReceive, data is null");
        return;
    }
    if (capture::On()) {
        capture::Notification({kEvent, handle, nullptr, 0, nullptr, 0, data->word0,
                               capture::PayloadKind::kBinary, data->data, data->len});
    }
    SessionFacts facts;
    std::string deviceId;
    bool noMemory = false;
    const bool found = sessions.LookupByHandle(handle, &facts, &deviceId, &noMemory);
    if (noMemory) {
        // The session is there, but its device id could not be copied for the listener.
        LogNoMemory(kScope, kEvent);
        return;
    }
    if (!found || facts.listener.onDataReceive == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "On DataReceive, Listen function is null");
        return;
    }
    if (!CheckEngineBytes(kScope, kEvent, "data", data->data, data->len,
                          kMaxEnginePayloadLength)) {
        return;
    }
    const OwnedBytes bytes = CopyBytes(data->data, data->len);
    if (bytes.noMemory) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "On DataReceive, new data failed: , dataLen: ",
                   data->len);
        return;
    }
    if (!bytes) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "On DataReceive, copy data failed: ",
                   bytes.copyResult);
        return;
    }
    BinaryData copy{data->word0, data->word1, bytes.bytes.get(), data->len};
    try {
        // The listener takes the device id by value: it gets this private copy, moved, so that
        // no allocation happens inside the listener guard (where it would read as a throwing
        // listener).
        CallListener(kScope, kEvent, facts.route,
                     [&] { facts.listener.onDataReceive(std::move(deviceId), &copy); });
    } catch (const std::bad_alloc&) {
        LogNoMemory(kScope, kEvent);
    }
}

uint32_t ConvertAudioDeviceType(uint32_t type) {
    switch (type) {
        case 0: return 3;
        case 1: return 2;
        case 2: return 10;
        case 3: return 9;
        default:
            log::Trace(LOG_MESSAGE_ERROR, "OrbPerix::BaseProvider::ConvertAudioDeviceType",
                       "Invalid deviceType ", type, ", using default value");
            return 3;
    }
}

uint32_t ConvertAudioServiceType(uint32_t type) {
    switch (type) {
        case 3: return 0;
        case 2: return 1;
        case 10: return 2;
        case 9: return 3;
        default:
            log::Trace(LOG_MESSAGE_ERROR, "OrbPerix::BaseProvider::ConvertAudioServiceType",
                       "Invalid serviceType ", type, ", using default value");
            return 0;
    }
}

}  // namespace OrbPerix
