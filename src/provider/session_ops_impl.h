// Member definitions of SessionOps<Kind>; included by session_ops.h only.
#ifndef ORBPERIX_SRC_PROVIDER_SESSION_OPS_IMPL_H_
#define ORBPERIX_SRC_PROVIDER_SESSION_OPS_IMPL_H_

#include <new>
#include <string_view>

#include "log/log.h"
#include "platform/platform.h"

// Defines the calling operation's log scope: Kind's prefix followed by `name`.
#define ORBPERIX_KIND_SCOPE(name)                                               \
    static constexpr auto kScopeText = JoinScope(Kind::kScopePrefix, name); \
    const char* const kScope = kScopeText.data()

namespace OrbPerix {

template <typename Kind>
SessionOps<Kind>::SessionOps(const OrbPERIXHandler& handler) noexcept : handler_(handler) {
    // Filled once here rather than at each registration: the engine may read the record while
    // another host thread registers a further peer, and its content never changes.
    engineListener_ = PerixEngineListener{&OnDeviceChange, &OnDeviceServiceChange, &OnDataReceive};
}

template <typename Kind>
int SessionOps<Kind>::ConnectDevice(PERIXInfo* deviceInfo) {
    ORBPERIX_KIND_SCOPE("ConnectDevice");
    if (BaseProvider::CheckPerixInfoInner(deviceInfo) != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "Invalid para: deviceInfo is invalid");
        return -2;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    const std::string_view peer = PeerDeviceId(*deviceInfo);
    SessionFacts facts;
    if (!Kind::Sessions().Lookup(peer, &facts) || facts.serviceHandle == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "connInfo is null, Please RegisterPERIXListener first");
        return -4;
    }
    if (facts.serverPort != -1) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "device already connected");
        return -4;
    }
    const int started = handler_.PERIXStartService(facts.serviceHandle, deviceInfo);
    if (started != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "PERIXStartService failed with ret ", started);
        return started;
    }
    const int copied =
        Kind::Sessions().MarkConnected(peer, facts.serviceHandle, deviceInfo->serverPort,
                                       deviceInfo->sessionKey, sizeof(deviceInfo->sessionKey));
    if (copied == SessionStore::kSessionGone) {
        // Another provider of this kind disconnected the peer while the engine started it.
        log::Trace(LOG_MESSAGE_ERROR, kScope, "connInfo is null, Please RegisterPERIXListener first");
        return -4;
    }
    if (copied != platform::kCopyOk) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "ConnectDevice, copy sessionKey failed with ret ",
                   copied);
        return -9;
    }
    return 0;
}

template <typename Kind>
int SessionOps<Kind>::DisconnectDevice(PERIXInfo* deviceInfo) {
    ORBPERIX_KIND_SCOPE("DisconnectDevice");
    if (deviceInfo == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "Invalid para: deviceInfo Invalid");
        return -2;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    bool found = false;
    // Out of the store first, so that no other thread can reach the record any more; the
    // engine is then called with no store lock held.
    PerixSessionInfo* record = Kind::Sessions().Take(PeerDeviceId(*deviceInfo), &found);
    if (!found) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "DisconnectDevice, device not connected.");
        return -4;
    }
    if (record != nullptr) {
        if (record->serviceHandle != nullptr) {
            handler_.PERIXReleaseServiceHandle(record->serviceHandle, nullptr, nullptr);
            record->serviceHandle = nullptr;
        }
        SessionStore::Destroy(record);
    }
    return 0;
}

template <typename Kind>
int SessionOps<Kind>::RegisterPERIXListenerSteps(PERIXInfo* deviceInfo,
                                                 ProviderListener* listener) {
    ORBPERIX_KIND_SCOPE("RegisterPERIXListener");
    if (!Kind::Initialized() || listener == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, Kind::kInitializeFirst);
        return -4;
    }
    void* handle = nullptr;
    int created = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        created = CreateServiceHandler(deviceInfo, listener, &handle);
    }
    if (created != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "CreateServiceHandler fail");
        return -13;
    }
    const int registered = handler_.PERIXRegisterListener(handle, &engineListener_);
    if (registered != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "RegisterPERIXListener failed: ", registered);
        return registered;
    }
    return 0;
}

template <typename Kind>
int SessionOps<Kind>::CreateServiceHandler(PERIXInfo* deviceInfo, ProviderListener* listener,
                                           void** out) {
    ORBPERIX_KIND_SCOPE("CreateServiceHandler");
    if (BaseProvider::CheckPerixInfoInner(deviceInfo) != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "Invalid para: deviceInfo is invalid");
        return -2;
    }
    if (out == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "handlerPtr is null");
        return -13;
    }
    const std::string_view peer = PeerDeviceId(*deviceInfo);
    if (Kind::Sessions().HandleOf(peer) != nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "device already created serviceHandler.");
        return -4;
    }
    void* handle = handler_.PERIXCreateServiceHandle(deviceInfo);
    serviceHandle_.store(handle, std::memory_order_relaxed);
    if (handle == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "PERIXCreateServiceHandle fail");
        return -13;
    }
    PerixSessionInfo* record = new (std::nothrow) PerixSessionInfo();
    if (record != nullptr) {
        try {
            record->deviceId.assign(peer.data(), peer.size());
        } catch (const std::bad_alloc&) {
            delete record;
            record = nullptr;
        }
    }
    if (record == nullptr) {
        // The engine handle stays with the engine, as it always has on this path.
        log::Trace(LOG_MESSAGE_ERROR, kScope, "new PerixSessionInfo fail");
        return -13;
    }
    record->serviceHandle = handle;
    if (listener != nullptr) {
        record->listener = *listener;
    }
    // A record displaced under the same key (a concurrent registration of the same peer by
    // another provider of this kind) is freed rather than leaked; its handle is not released.
    SessionStore::Destroy(Kind::Sessions().Insert(record));
    *out = handle;
    return 0;
}

template <typename Kind>
int SessionOps<Kind>::UnRegisterListener(PERIXInfo* deviceInfo) {
    ORBPERIX_KIND_SCOPE("UnRegisterListener");
    void* handle =
        deviceInfo != nullptr ? Kind::Sessions().HandleOf(PeerDeviceId(*deviceInfo)) : nullptr;
    if (handle == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "connInfo is null, Please RegisterPERIXListener first");
        return -4;
    }
    return handler_.PERIXUnRegisterListener(handle);
}

template <typename Kind>
int SessionOps<Kind>::RegisterDataListener(const std::string* deviceId, uint32_t type,
                                           void* callback) {
    ORBPERIX_KIND_SCOPE("RegisterDataListener");
    if (deviceId == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "RegisterDataListener device is null");
        return -2;
    }
    void* handle = Kind::Sessions().HandleOf(*deviceId);
    if (handle == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "serviceHandler is null, please ConnectDevice first.");
        return -4;
    }
    // The engine's result is deliberately not reported.
    handler_.PERIXRegisterCallback(handle, type, callback);
    return 0;
}

template <typename Kind>
int SessionOps<Kind>::UnRegisterDataListener(const std::string* deviceId, uint32_t /*type*/) {
    ORBPERIX_KIND_SCOPE("UnRegisterDataListener");
    if (deviceId == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "UnRegisterDataListener device is null");
        return -2;
    }
    if (Kind::Sessions().HandleOf(*deviceId) == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "serviceHandler is null, please ConnectDevice first.");
        return -4;
    }
    // Unregistering is a no-op beyond the checks: the engine has no counterpart.
    return 0;
}

template <typename Kind>
void SessionOps<Kind>::SendBinaryData(const std::string* deviceId, BinaryData* data) {
    ORBPERIX_KIND_SCOPE("SendBinaryData");
    if (deviceId == nullptr || data == nullptr || data->data == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "SendBinaryData param invalid");
        return;
    }
    void* handle = Kind::Sessions().HandleOf(*deviceId);
    if (handle == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "serviceHandler is null, please ConnectDevice first.");
        return;
    }
    if (data->len == 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "SendBinaryData, data len invalid.");
        return;
    }
    BinaryData copy{data->word0, data->word1, nullptr, data->len};
    copy.data = new (std::nothrow) uint8_t[data->len];
    if (copy.data == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "SendBinaryData, new binaryData failed.");
        return;
    }
    const int copied = platform::BoundedCopy(copy.data, copy.len, data->data, data->len);
    if (copied != platform::kCopyOk) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "SendBinaryData, copy data failed: ", copied);
        delete[] copy.data;
        return;
    }
    // The engine's result is deliberately not reported.
    handler_.PERIXSendBinaryData(handle, &copy);
    delete[] copy.data;
}

template <typename Kind>
int SessionOps<Kind>::SendData(const std::string* deviceId, BinaryData* data) {
    SendBinaryData(deviceId, data);
    return 0;
}

template <typename Kind>
int SessionOps<Kind>::SendDataNoResult(const std::string* deviceId, BinaryData* data) {
    SendBinaryData(deviceId, data);
    return 0;
}

template <typename Kind>
int SessionOps<Kind>::StartDeviceService(ServiceInfo* service, void* /*reserved*/) {
    ORBPERIX_KIND_SCOPE("StartDeviceService");
    if (service == nullptr || service->deviceId.empty()) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "StartDeviceService failed,service or deviceId is null.");
        return -2;
    }
    void* handle = Kind::Sessions().HandleOf(service->deviceId);
    if (handle == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "StartDeviceService failed,serviceHandler is null.");
        return -4;
    }
    const PerixVirtualService record{service->serviceId.c_str(),
                                     static_cast<uint32_t>(service->serviceId.size()),
                                     service->serviceType};
    const int added = handler_.PERIXAddVirtualService(handle, &record);
    if (added != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "PERIXAddVirtualService failed with ret=", added);
        return added;
    }
    return handler_.PERIXEnableVirtualService(handle, &record, 0);
}

template <typename Kind>
int SessionOps<Kind>::StopDeviceService(ServiceInfo* service) {
    ORBPERIX_KIND_SCOPE("StopDeviceService");
    if (service == nullptr || service->deviceId.empty()) {
        return -2;
    }
    void* handle = Kind::Sessions().HandleOf(service->deviceId);
    if (handle == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "serviceHandler is null, Please Connect device first.");
        return -4;
    }
    const PerixVirtualService record{service->serviceId.c_str(),
                                     static_cast<uint32_t>(service->serviceId.size()),
                                     service->serviceType};
    const int disabled = handler_.PERIXDisableVirtualService(handle, &record, 0);
    if (disabled != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "PERIXDisableVirtualService failed with ret=",
                   disabled);
        return disabled;
    }
    return handler_.PERIXRemoveVirtualService(handle, &record);
}

template <typename Kind>
void SessionOps<Kind>::RegisterEventCallback(const std::string& deviceId, uint32_t type,
                                             void* callback) {
    ORBPERIX_KIND_SCOPE("RegisterEventCallback");
    void* handle = Kind::Sessions().HandleOf(deviceId);
    if (handle == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "RegisterEventCallback failed, Please Connect device first.");
        return;
    }
    handler_.PERIXRegisterCallback(handle, type, callback);
}

template <typename Kind>
int SessionOps<Kind>::SendByHandler(void* a, void* b, void* c) {
    return handler_.PERIXPassThrough(serviceHandle_.load(std::memory_order_relaxed), a, b, c);
}

template <typename Kind>
void SessionOps<Kind>::TearDownSessions() {
    std::lock_guard<std::mutex> lock(mutex_);
    SessionStore::Map taken = Kind::Sessions().TakeAll();
    for (auto& entry : taken) {
        PerixSessionInfo* record = entry.second;
        if (record != nullptr && record->serviceHandle != nullptr) {
            handler_.PERIXReleaseServiceHandle(record->serviceHandle, nullptr, nullptr);
        }
        // Records are only ever stored with a handle, so freeing every one leaks nothing
        // and changes no engine call.
        SessionStore::Destroy(record);
    }
}

template <typename Kind>
void SessionOps<Kind>::OnDeviceChange(void* handle, const void* notify) {
    BaseProvider::DeviceChange(Kind::Sessions(), handle,
                               static_cast<const PerixDeviceChangeNotify*>(notify));
}

template <typename Kind>
void SessionOps<Kind>::OnDeviceServiceChange(void* handle, const void* notify) {
    BaseProvider::DeviceServiceChange(Kind::Sessions(), handle,
                                      static_cast<const PerixServiceChangeNotify*>(notify));
}

template <typename Kind>
void SessionOps<Kind>::OnDataReceive(void* handle, const void* data) {
    BaseProvider::DataReceive(Kind::Sessions(), handle, static_cast<const BinaryData*>(data));
}

}  // namespace OrbPerix

#undef ORBPERIX_KIND_SCOPE

#endif  // ORBPERIX_SRC_PROVIDER_SESSION_OPS_IMPL_H_
