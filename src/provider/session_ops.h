// SessionOps: the connection and services code that the input and source providers share,
// written once. What tells the kinds apart is a SessionKind record: the kind's session store,
// its "initialised" flag, its log texts and its engine listener record.
//
// A provider derives from SessionProvider (which holds `SessionOps ops_` for the kind's record
// and implements the shared virtual operations with it), and:
//   - RegisterPERIXListener: calls ops_.RegisterPERIXListenerSteps (the initialised check,
//     CreateServiceHandler under the provider mutex, PERIXRegisterListener with the kind's
//     engine listener record); on 0 it registers its own channel callbacks.
//   - DeInit: clears the kind's flag itself, then calls ops_.TearDownSessions().
//
// Threading: host threads call the operations. Every engine call that passes a session's
// handle holds a lease on the session (see SessionStore), so a concurrent DisconnectDevice or
// DeInit never makes it pass a released handle. No lock of this library is held while the
// engine runs, except the provider mutex around CreateServiceHandler; in particular a handle
// is never released under a lock, so a listener may disconnect or de-initialise from inside a
// notification while the engine's release waits for that notification to end.
#ifndef ORBPERIX_SRC_PROVIDER_SESSION_OPS_H_
#define ORBPERIX_SRC_PROVIDER_SESSION_OPS_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

#include "orbperix/engine_tables.h"
#include "orbperix/records.h"
#include "engine/engine_gate.h"
#include "provider/provider_common.h"
#include "provider/session_store.h"

namespace OrbPerix {

// One provider kind as the shared session code sees it. Lives in static storage for the
// library's lifetime: the engine keeps `engineListener` by address.
struct SessionKind {
    SessionStore& (*sessions)() noexcept;  // the kind's process-wide store
    bool (*initialized)() noexcept;        // the kind's "initialised" flag (relaxed read)
    const char* initializeFirst;           // RegisterPERIXListener's text when not initialised
    PerixEngineListener engineListener;    // the kind's three engine entry points
    struct Scopes {                        // the log scope of each operation
        const char* connectDevice;
        const char* createServiceHandler;
        const char* disconnectDevice;
        const char* registerDataListener;
        const char* registerEventCallback;
        const char* registerPERIXListener;
        const char* sendBinaryData;
        const char* startDeviceService;
        const char* stopDeviceService;
        const char* unRegisterDataListener;
        const char* unRegisterListener;
    } scopes;
};

class SessionOps {
public:
    SessionOps(const SessionKind& kind, const EngineLoad& load) noexcept
        : kind_(kind), load_(load) {}
    SessionOps(const SessionOps&) = delete;
    SessionOps& operator=(const SessionOps&) = delete;

    int ConnectDevice(PERIXInfo* deviceInfo);
    int DisconnectDevice(PERIXInfo* deviceInfo);
    // RegisterPERIXListener up to the kind's own channel callbacks (see the comment at the top).
    // `route` is the C interface's listener, kept in the session with the host's entries.
    int RegisterPERIXListenerSteps(PERIXInfo* deviceInfo, ProviderListener* listener,
                                   const HostRoute& route);
    int UnRegisterListener(PERIXInfo* deviceInfo);
    int RegisterDataListener(const std::string* deviceId, uint32_t type, void* callback);
    int UnRegisterDataListener(const std::string* deviceId, uint32_t type);
    int SendData(const std::string* deviceId, BinaryData* data);
    int SendDataNoResult(const std::string* deviceId, BinaryData* data);
    void SendBinaryData(const std::string* deviceId, BinaryData* data);
    int StartDeviceService(ServiceInfo* service, void* reserved);
    int StopDeviceService(ServiceInfo* service);
    void RegisterEventCallback(const std::string& deviceId, uint32_t type, void* callback);
    int SendByHandler(void* a, void* b, void* c);

    // REQUIRES: ProviderMutex() held by the caller.
    int CreateServiceHandler(PERIXInfo* deviceInfo, ProviderListener* listener,
                             const HostRoute& route, void** out);
    // DeInit's teardown: takes every session out of the store; each handle is released through
    // PERIXReleaseServiceHandle in key order (or by the engine call still using it, when it
    // ends) and the records are freed.
    void TearDownSessions() noexcept;

    std::mutex& ProviderMutex() noexcept { return mutex_; }
    void* ServiceHandle() const noexcept { return serviceHandle_.load(std::memory_order_relaxed); }
    const EngineLoad& Load() const noexcept { return load_; }

private:
    const SessionKind& kind_;
    const EngineLoad& load_;  // the load the provider was created under (never freed)
    std::mutex mutex_;        // the provider mutex
    std::atomic<void*> serviceHandle_{nullptr};  // most recently created handle
};

}  // namespace OrbPerix


#endif  // ORBPERIX_SRC_PROVIDER_SESSION_OPS_H_
