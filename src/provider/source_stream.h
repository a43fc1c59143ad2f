// The delivery of one engine stream notification (audio or partial refresh) to the host's
// listener, written once for both channels: each channel supplies a Channel traits type with
//   using Record = AudioData / PartialRefreshData;  the record the listener receives
//   static constexpr auto kListener;                 its ProviderListener entry
//   static uint32_t HostServiceType(uint32_t engineType);
//   static void Fill(Record&, a, b, length, data);   where the length and pointer go
//   kScope, kEvent, kNoListener, kNewFailed, kCopyFailed;  its log scope and messages
//
// Runs on an engine thread. The session store's lock is held only to copy the listener out;
// the listener runs with no lock of this library held.
#ifndef ORBPERIX_SRC_PROVIDER_SOURCE_STREAM_H_
#define ORBPERIX_SRC_PROVIDER_SOURCE_STREAM_H_

#include <new>
#include <string>
#include <string_view>

#include "capture/capture.h"
#include "engine/engine_gate.h"
#include "log/log.h"
#include "provider/delivery.h"
#include "orbperix/engine_tables.h"
#include "platform/platform.h"
#include "provider/source_provider.h"
#include "provider/owned_bytes.h"
#include "util/result.h"

namespace OrbPerix {

template <typename Channel>
int DeliverStream(const void* serviceIdRecord, const void* dataRecord) noexcept {
    engine::CallbackScope inCallback;
    const auto* id = static_cast<const PerixServiceId*>(serviceIdRecord);
    const auto* notify = static_cast<const PerixStreamNotify*>(dataRecord);
    if (id == nullptr || notify == nullptr) {
        return kMalformedRecord;
    }
    if (capture::On()) {
        capture::Notification({Channel::kEvent, nullptr, id->deviceId, id->deviceIdLen,
                               id->serviceId, id->serviceIdLen, id->serviceType,
                               Channel::kPayloadKind, notify->data, notify->dataLen});
    }
    if (!CheckEngineText(Channel::kScope, Channel::kEvent, "deviceId", id->deviceId,
                         id->deviceIdLen)) {
        return kMalformedRecord;
    }
    const std::string_view deviceId = EngineText(id->deviceId, id->deviceIdLen);
    SessionFacts facts;
    if (!SourceKind::Sessions().Lookup(deviceId, &facts) ||
        facts.listener.*Channel::kListener == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, Channel::kScope, Channel::kNoListener);
        return kUnavailable;
    }
    // The host is promised a null data pointer exactly when the length is 0.
    if (!CheckEngineText(Channel::kScope, Channel::kEvent, "serviceId", id->serviceId,
                         id->serviceIdLen) ||
        !CheckEngineBytes(Channel::kScope, Channel::kEvent, "data", notify->data,
                          notify->dataLen, kMaxEnginePayloadLength)) {
        return kMalformedRecord;
    }
    try {
        ServiceInfo service{std::string(deviceId),
                            std::string(EngineText(id->serviceId, id->serviceIdLen)),
                            Channel::HostServiceType(id->serviceType)};
        typename Channel::Record record{};
        const uint32_t length = notify->dataLen;
        OwnedBytes copy;
        if (length != 0) {
            copy = CopyBytes(notify->data, length);
            if (copy.noMemory) {
                log::Trace(LOG_MESSAGE_ERROR, Channel::kScope, Channel::kNewFailed, length);
                return kUnavailable;
            }
            if (!copy) {
                log::Trace(LOG_MESSAGE_ERROR, Channel::kScope, Channel::kCopyFailed,
                           copy.copyResult);
                return copy.copyResult;
            }
        }
        Channel::Fill(record, notify->a, notify->b, length, copy.bytes.get());
        // The listener's result is not ours to interpret; what it throws stays here.
        const bool delivered = CallListener(Channel::kScope, Channel::kEvent, facts.route, [&] {
            (facts.listener.*Channel::kListener)(&service, &record);
        });
        return delivered ? kOk : kListenerFailed;
    } catch (const std::bad_alloc&) {
        // The device or service id could not be copied for the listener.
        LogNoMemory(Channel::kScope, Channel::kEvent);
        return kUnavailable;
    }
}

}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_PROVIDER_SOURCE_STREAM_H_
