// Member definitions of SessionOps<Kind>; included by session_ops.h only.
#ifndef ORBPERIX_SRC_PROVIDER_SESSION_OPS_IMPL_H_
#define ORBPERIX_SRC_PROVIDER_SESSION_OPS_IMPL_H_

#include <new>
#include <string_view>

#include "log/log.h"
#include "platform/platform.h"
#include "provider/owned_bytes.h"
#include "util/result.h"

// Defines the calling operation's log scope: Kind's prefix followed by `name`.
#define ORBPERIX_KIND_SCOPE(name)                                               \
    static constexpr auto kScopeText = JoinScope(Kind::kScopePrefix, name); \
    const char* const kScope = kScopeText.data()

namespace OrbPerix {

template <typename Kind>
const PerixEngineListener SessionOps<Kind>::kEngineListener = {
    &SessionOps<Kind>::OnDeviceChange, &SessionOps<Kind>::OnDeviceServiceChange,
    &SessionOps<Kind>::OnDataReceive};

template <typename Kind>
int SessionOps<Kind>::ConnectDevice(PERIXInfo* deviceInfo) {
    ORBPERIX_KIND_SCOPE("ConnectDevice");
    if (CheckPerixInfo(deviceInfo) != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "Invalid para: deviceInfo is invalid");
        return kInvalidArgument;
    }
    const std::string_view peer = PeerDeviceId(*deviceInfo);
    SessionFacts facts;
    // The lease keeps the handle from being released while the engine starts the service.
    SessionStore::Lease session = Kind::Sessions().Acquire(peer, &facts);
    if (!session) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "connInfo is null, Please RegisterPERIXListener first");
        return kWrongState;
    }
    if (facts.serverPort != -1) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "device already connected");
        return kWrongState;
    }
    const int started = engine::Call(session.Load(), session.Load().main.PERIXStartService,
                                     session.Handle(), deviceInfo);
    if (started != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "PERIXStartService failed with ret ", started);
        return started;
    }
    const int copied =
        Kind::Sessions().MarkConnected(peer, session.Handle(), deviceInfo->serverPort,
                                       deviceInfo->sessionKey, sizeof(deviceInfo->sessionKey));
    if (copied == SessionStore::kSessionGone) {
        // The peer was disconnected while the engine started it.
        log::Trace(LOG_MESSAGE_ERROR, kScope, "connInfo is null, Please RegisterPERIXListener first");
        return kWrongState;
    }
    if (copied != platform::kCopyOk) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "ConnectDevice, copy sessionKey failed with ret ",
                   copied);
        return kKeyCopyFailed;
    }
    return 0;
}

template <typename Kind>
int SessionOps<Kind>::DisconnectDevice(PERIXInfo* deviceInfo) {
    ORBPERIX_KIND_SCOPE("DisconnectDevice");
    if (deviceInfo == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "Invalid para: deviceInfo Invalid");
        return kInvalidArgument;
    }
    // Out of the store at once, so that nothing new can use the handle; it is released with no
    // lock held (now, or by the engine call still using it when that call ends).
    if (!Kind::Sessions().Remove(PeerDeviceId(*deviceInfo))) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "DisconnectDevice, device not connected.");
        return kWrongState;
    }
    return 0;
}

template <typename Kind>
int SessionOps<Kind>::RegisterPERIXListenerSteps(PERIXInfo* deviceInfo,
                                                 ProviderListener* listener,
                                                 const HostRoute& route) {
    ORBPERIX_KIND_SCOPE("RegisterPERIXListener");
    if (!Kind::Initialized() || listener == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, Kind::kInitializeFirst);
        return kWrongState;
    }
    void* handle = nullptr;
    int created = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        created = CreateServiceHandler(deviceInfo, listener, route, &handle);
    }
    if (created != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "CreateServiceHandler fail");
        return kUnavailable;
    }
    SessionStore::Lease session = Kind::Sessions().Acquire(PeerDeviceId(*deviceInfo));
    const int registered =
        session ? engine::Call(session.Load(), session.Load().main.PERIXRegisterListener,
                               session.Handle(), &kEngineListener)
                : kEngineNotAvailable;  // disconnected meanwhile by another thread
    if (registered != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "RegisterPERIXListener failed: ", registered);
        return registered;
    }
    return 0;
}

template <typename Kind>
int SessionOps<Kind>::CreateServiceHandler(PERIXInfo* deviceInfo, ProviderListener* listener,
                                           const HostRoute& route, void** out) {
    ORBPERIX_KIND_SCOPE("CreateServiceHandler");
    if (CheckPerixInfo(deviceInfo) != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "Invalid para: deviceInfo is invalid");
        return kInvalidArgument;
    }
    if (out == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "handlerPtr is null");
        return kUnavailable;
    }
    const std::string_view peer = PeerDeviceId(*deviceInfo);
    // The key is taken before the engine is asked, so that two registrations of one peer
    // cannot both create a handle, and the record exists before the handle does.
    switch (Kind::Sessions().Reserve(peer)) {
        case SessionStore::Reservation::kReserved:
            break;
        case SessionStore::Reservation::kExists:
            log::Trace(LOG_MESSAGE_ERROR, kScope, "device already created serviceHandler.");
            return kWrongState;
        case SessionStore::Reservation::kNoMemory:
            log::Trace(LOG_MESSAGE_ERROR, kScope, "new PerixSessionInfo fail");
            return kUnavailable;
    }
    void* handle = engine::Call(load_, load_.main.PERIXCreateServiceHandle, deviceInfo);
    serviceHandle_.store(handle, std::memory_order_relaxed);
    if (handle == nullptr) {
        Kind::Sessions().Abandon(peer);
        log::Trace(LOG_MESSAGE_ERROR, kScope, "PERIXCreateServiceHandle fail");
        return kUnavailable;
    }
    const ProviderListener entries = listener != nullptr ? *listener : ProviderListener{};
    if (!Kind::Sessions().Complete(peer, handle, load_, entries, route)) {
        // Disconnected while the engine created the handle: nobody else will release it.
        engine::Call(load_, load_.main.PERIXReleaseServiceHandle, handle, nullptr, nullptr);
        log::Trace(LOG_MESSAGE_ERROR, kScope,
                   "CreateServiceHandler: device disconnected while its handle was created");
        return kUnavailable;
    }
    *out = handle;
    return 0;
}

template <typename Kind>
int SessionOps<Kind>::UnRegisterListener(PERIXInfo* deviceInfo) {
    ORBPERIX_KIND_SCOPE("UnRegisterListener");
    SessionStore::Lease session;
    if (deviceInfo != nullptr) {
        session = Kind::Sessions().Acquire(PeerDeviceId(*deviceInfo));
    }
    if (!session) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "connInfo is null, Please RegisterPERIXListener first");
        return kWrongState;
    }
    return engine::Call(session.Load(), session.Load().main.PERIXUnRegisterListener,
                        session.Handle());
}

template <typename Kind>
int SessionOps<Kind>::RegisterDataListener(const std::string* deviceId, uint32_t type,
                                           void* callback) {
    ORBPERIX_KIND_SCOPE("RegisterDataListener");
    if (deviceId == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "RegisterDataListener device is null");
        return kInvalidArgument;
    }
    SessionStore::Lease session = Kind::Sessions().Acquire(*deviceId);
    if (!session) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "serviceHandler is null, please ConnectDevice first.");
        return kWrongState;
    }
    // The engine's result is deliberately not reported.
    engine::Call(session.Load(), session.Load().main.PERIXRegisterCallback, session.Handle(),
                 type, callback);
    return 0;
}

template <typename Kind>
int SessionOps<Kind>::UnRegisterDataListener(const std::string* deviceId, uint32_t /*type*/) {
    ORBPERIX_KIND_SCOPE("UnRegisterDataListener");
    if (deviceId == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "UnRegisterDataListener device is null");
        return kInvalidArgument;
    }
    if (!Kind::Sessions().HasHandle(*deviceId)) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "serviceHandler is null, please ConnectDevice first.");
        return kWrongState;
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
    SessionStore::Lease session = Kind::Sessions().Acquire(*deviceId);
    if (!session) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "serviceHandler is null, please ConnectDevice first.");
        return;
    }
    if (data->len == 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "SendBinaryData, data len invalid.");
        return;
    }
    const OwnedBytes bytes = CopyBytes(data->data, data->len);
    if (bytes.noMemory) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "SendBinaryData, new binaryData failed.");
        return;
    }
    if (!bytes) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "SendBinaryData, copy data failed: ",
                   bytes.copyResult);
        return;
    }
    BinaryData copy{data->word0, data->word1, bytes.bytes.get(), data->len};
    // The engine's result is deliberately not reported.
    engine::Call(session.Load(), session.Load().main.PERIXSendBinaryData, session.Handle(),
                 &copy);
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
        return kInvalidArgument;
    }
    SessionStore::Lease session = Kind::Sessions().Acquire(service->deviceId);
    if (!session) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "StartDeviceService failed,serviceHandler is null.");
        return kWrongState;
    }
    const PerixVirtualService record{service->serviceId.c_str(),
                                     static_cast<uint32_t>(service->serviceId.size()),
                                     service->serviceType};
    const EngineLoad& load = session.Load();
    const int added = engine::Call(load, load.main.PERIXAddVirtualService, session.Handle(), &record);
    if (added != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "PERIXAddVirtualService failed with ret=", added);
        return added;
    }
    return engine::Call(load, load.main.PERIXEnableVirtualService, session.Handle(), &record, 0u);
}

template <typename Kind>
int SessionOps<Kind>::StopDeviceService(ServiceInfo* service) {
    ORBPERIX_KIND_SCOPE("StopDeviceService");
    if (service == nullptr || service->deviceId.empty()) {
        return kInvalidArgument;
    }
    SessionStore::Lease session = Kind::Sessions().Acquire(service->deviceId);
    if (!session) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "serviceHandler is null, Please Connect device first.");
        return kWrongState;
    }
    const PerixVirtualService record{service->serviceId.c_str(),
                                     static_cast<uint32_t>(service->serviceId.size()),
                                     service->serviceType};
    const EngineLoad& load = session.Load();
    const int disabled =
        engine::Call(load, load.main.PERIXDisableVirtualService, session.Handle(), &record, 0u);
    if (disabled != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "PERIXDisableVirtualService failed with ret=",
                   disabled);
        return disabled;
    }
    return engine::Call(load, load.main.PERIXRemoveVirtualService, session.Handle(), &record);
}

template <typename Kind>
void SessionOps<Kind>::RegisterEventCallback(const std::string& deviceId, uint32_t type,
                                             void* callback) {
    ORBPERIX_KIND_SCOPE("RegisterEventCallback");
    SessionStore::Lease session = Kind::Sessions().Acquire(deviceId);
    if (!session) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "RegisterEventCallback failed, Please Connect device first.");
        return;
    }
    engine::Call(session.Load(), session.Load().main.PERIXRegisterCallback, session.Handle(),
                 type, callback);
}

template <typename Kind>
int SessionOps<Kind>::SendByHandler(void* a, void* b, void* c) {
    // The most recently created handle, while its session lives; once it has been released
    // the engine gets a null handle, as before any handle was created.
    SessionStore::Lease session =
        Kind::Sessions().AcquireByHandle(serviceHandle_.load(std::memory_order_relaxed));
    if (session) {
        return engine::Call(session.Load(), session.Load().main.PERIXPassThrough,
                            session.Handle(), a, b, c);
    }
    return engine::Call(load_, load_.main.PERIXPassThrough, static_cast<void*>(nullptr), a, b, c);
}

template <typename Kind>
void SessionOps<Kind>::TearDownSessions() noexcept {
    Kind::Sessions().RemoveAll();
}

template <typename Kind>
void SessionOps<Kind>::OnDeviceChange(void* handle, const void* notify) noexcept {
    ForwardDeviceChange(Kind::Sessions(), handle,
                        static_cast<const PerixDeviceChangeNotify*>(notify));
}

template <typename Kind>
void SessionOps<Kind>::OnDeviceServiceChange(void* handle, const void* notify) noexcept {
    ForwardServiceChange(Kind::Sessions(), handle,
                         static_cast<const PerixServiceChangeNotify*>(notify));
}

template <typename Kind>
void SessionOps<Kind>::OnDataReceive(void* handle, const void* data) noexcept {
    ForwardDataReceive(Kind::Sessions(), handle, static_cast<const BinaryData*>(data));
}

}  // namespace OrbPerix

#undef ORBPERIX_KIND_SCOPE

#endif  // ORBPERIX_SRC_PROVIDER_SESSION_OPS_IMPL_H_
