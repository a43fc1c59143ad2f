// The connection and services code that the input and source providers share, written once;
// the kind it serves is data (SessionKind).
#include "provider/session_ops.h"

#include <new>
#include <string_view>

#include "log/log.h"
#include "platform/platform.h"
#include "provider/owned_bytes.h"
#include "util/result.h"

namespace OrbPerix {


int SessionOps::ConnectDevice(PERIXInfo* deviceInfo) {
    const char* const kScope = kind_.scopes.connectDevice;
    if (CheckPerixInfo(deviceInfo) != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "Invalid para: deviceInfo is invalid");
        return kInvalidArgument;
    }
    const std::string_view peer = PeerDeviceId(*deviceInfo);
    SessionFacts facts;
    // The lease keeps the handle from being released while the engine starts the service.
    SessionStore::Lease session = kind_.sessions().Acquire(peer, &facts);
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
        kind_.sessions().MarkConnected(peer, session.Handle(), deviceInfo->serverPort,
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

int SessionOps::DisconnectDevice(PERIXInfo* deviceInfo) {
    const char* const kScope = kind_.scopes.disconnectDevice;
    if (deviceInfo == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "Invalid para: deviceInfo Invalid");
        return kInvalidArgument;
    }
    // Out of the store at once, so that nothing new can use the handle; it is released with no
    // lock held (now, or by the engine call still using it when that call ends).
    if (!kind_.sessions().Remove(PeerDeviceId(*deviceInfo))) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "DisconnectDevice, device not connected.");
        return kWrongState;
    }
    return 0;
}

int SessionOps::RegisterPERIXListenerSteps(PERIXInfo* deviceInfo,
                                           ProviderListener* listener,
                                           const HostRoute& route) {
    const char* const kScope = kind_.scopes.registerPERIXListener;
    if (!kind_.initialized() || listener == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, kind_.initializeFirst);
        return kWrongState;
    }
    void* handle = nullptr;
    int created = 0;
    {
        log::developer::HoldingLock holding;  // CreateServiceHandler logs under the mutex
        std::lock_guard<std::mutex> lock(mutex_);
        created = CreateServiceHandler(deviceInfo, listener, route, &handle);
    }
    if (created != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "CreateServiceHandler fail");
        return kUnavailable;
    }
    SessionStore::Lease session = kind_.sessions().Acquire(PeerDeviceId(*deviceInfo));
    const int registered =
        session ? engine::Call(session.Load(), session.Load().main.PERIXRegisterListener,
                               session.Handle(), &kind_.engineListener)
                : kEngineNotAvailable;  // disconnected meanwhile by another thread
    if (registered != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "RegisterPERIXListener failed: ", registered);
        return registered;
    }
    return 0;
}

int SessionOps::CreateServiceHandler(PERIXInfo* deviceInfo, ProviderListener* listener,
                                     const HostRoute& route, void** out) {
    const char* const kScope = kind_.scopes.createServiceHandler;
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
    switch (kind_.sessions().Reserve(peer)) {
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
        kind_.sessions().Abandon(peer);
        log::Trace(LOG_MESSAGE_ERROR, kScope, "PERIXCreateServiceHandle fail");
        return kUnavailable;
    }
    const ProviderListener entries = listener != nullptr ? *listener : ProviderListener{};
    if (!kind_.sessions().Complete(peer, handle, load_, entries, route)) {
        // Disconnected while the engine created the handle: nobody else will release it.
        engine::Call(load_, load_.main.PERIXReleaseServiceHandle, handle, nullptr, nullptr);
        log::Trace(LOG_MESSAGE_ERROR, kScope,
                   "CreateServiceHandler: device disconnected while its handle was created");
        return kUnavailable;
    }
    *out = handle;
    return 0;
}

int SessionOps::UnRegisterListener(PERIXInfo* deviceInfo) {
    const char* const kScope = kind_.scopes.unRegisterListener;
    SessionStore::Lease session;
    if (deviceInfo != nullptr) {
        session = kind_.sessions().Acquire(PeerDeviceId(*deviceInfo));
    }
    if (!session) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "connInfo is null, Please RegisterPERIXListener first");
        return kWrongState;
    }
    return engine::Call(session.Load(), session.Load().main.PERIXUnRegisterListener,
                        session.Handle());
}

int SessionOps::RegisterDataListener(const std::string* deviceId, uint32_t type,
                                     void* callback) {
    const char* const kScope = kind_.scopes.registerDataListener;
    if (deviceId == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "RegisterDataListener device is null");
        return kInvalidArgument;
    }
    SessionStore::Lease session = kind_.sessions().Acquire(*deviceId);
    if (!session) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "serviceHandler is null, please ConnectDevice first.");
        return kWrongState;
    }
    // The engine's result is deliberately not reported.
    engine::Call(session.Load(), session.Load().main.PERIXRegisterCallback, session.Handle(),
                 type, callback);
    return 0;
}

int SessionOps::UnRegisterDataListener(const std::string* deviceId, uint32_t /*type*/) {
    const char* const kScope = kind_.scopes.unRegisterDataListener;
    if (deviceId == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "UnRegisterDataListener device is null");
        return kInvalidArgument;
    }
    if (!kind_.sessions().HasHandle(*deviceId)) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "serviceHandler is null, please ConnectDevice first.");
        return kWrongState;
    }
    // Unregistering is a no-op beyond the checks: the engine has no counterpart.
    return 0;
}

void SessionOps::SendBinaryData(const std::string* deviceId, BinaryData* data) {
    const char* const kScope = kind_.scopes.sendBinaryData;
    if (deviceId == nullptr || data == nullptr || data->data == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "SendBinaryData param invalid");
        return;
    }
    SessionStore::Lease session = kind_.sessions().Acquire(*deviceId);
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

int SessionOps::SendData(const std::string* deviceId, BinaryData* data) {
    SendBinaryData(deviceId, data);
    return 0;
}

int SessionOps::SendDataNoResult(const std::string* deviceId, BinaryData* data) {
    SendBinaryData(deviceId, data);
    return 0;
}

int SessionOps::StartDeviceService(ServiceInfo* service, void* /*reserved*/) {
    const char* const kScope = kind_.scopes.startDeviceService;
    if (service == nullptr || service->deviceId.empty()) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "StartDeviceService failed,service or deviceId is null.");
        return kInvalidArgument;
    }
    SessionStore::Lease session = kind_.sessions().Acquire(service->deviceId);
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

int SessionOps::StopDeviceService(ServiceInfo* service) {
    const char* const kScope = kind_.scopes.stopDeviceService;
    if (service == nullptr || service->deviceId.empty()) {
        return kInvalidArgument;
    }
    SessionStore::Lease session = kind_.sessions().Acquire(service->deviceId);
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

void SessionOps::RegisterEventCallback(const std::string& deviceId, uint32_t type,
                                       void* callback) {
    const char* const kScope = kind_.scopes.registerEventCallback;
    SessionStore::Lease session = kind_.sessions().Acquire(deviceId);
    if (!session) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "RegisterEventCallback failed, Please Connect device first.");
        return;
    }
    engine::Call(session.Load(), session.Load().main.PERIXRegisterCallback, session.Handle(),
                 type, callback);
}

int SessionOps::SendByHandler(void* a, void* b, void* c) {
    // The most recently created handle, while its session lives; once it has been released
    // the engine gets a null handle, as before any handle was created.
    SessionStore::Lease session =
        kind_.sessions().AcquireByHandle(serviceHandle_.load(std::memory_order_relaxed));
    if (session) {
        return engine::Call(session.Load(), session.Load().main.PERIXPassThrough,
                            session.Handle(), a, b, c);
    }
    return engine::Call(load_, load_.main.PERIXPassThrough, static_cast<void*>(nullptr), a, b, c);
}

void SessionOps::TearDownSessions() noexcept {
    kind_.sessions().RemoveAll();
}

}  // namespace OrbPerix
