// SessionOps<Kind>: the connection and services code that the input and source providers share
// step for step, written once and instantiated per provider kind.
//
// HOW A PROVIDER KIND INSTANTIATES IT
//   1. Define a kind struct holding (or reaching) the kind's class-wide state:
//
//        struct SourceKind {
//            // Scope prefix of every log line of the shared operations.
//            static constexpr char kScopePrefix[] = "OrbPerix::SourceProvider::";
//            // Message of RegisterPERIXListener when the kind is not initialised.
//            static constexpr char kInitializeFirst[] = "Please initialize SourceProvider first";
//            // The kind's process-wide session store (a function-local static is fine).
//            static SessionStore& Sessions() noexcept;
//            // The kind's class-wide "initialised" flag (input: heartbeatRunning,
//            // source: sourceInitialized), read with relaxed ordering.
//            static bool Initialized() noexcept;
//        };
//
//   2. Give the provider a member `SessionOps<SourceKind> ops_{load};` (constructed from
//      the engine load the provider is bound to) and forward the shared virtual operations to it:
//      ConnectDevice, DisconnectDevice, UnRegisterListener, RegisterDataListener,
//      UnRegisterDataListener, SendData, SendDataNoResult, SendBinaryData,
//      StartDeviceService, StopDeviceService, RegisterEventCallback, SendByHandler.
//
//   3. RegisterPERIXListener: call ops_.RegisterPERIXListenerSteps(deviceInfo, listener, route)
//      (the initialised check, CreateServiceHandler under the provider mutex, and
//      PERIXRegisterListener with the kind's OnDeviceChange/OnDeviceServiceChange/
//      OnDataReceive). When it returns non-zero, return that. Otherwise register the kind's
//      own channel callbacks (input: the button callback; source: audio, then refresh) with
//      the kind's own messages, and return 0.
//
//   4. DeInit: test and clear the kind's flag yourself (step 1), then call
//      ops_.TearDownSessions() (empties the store; every session's handle is released once,
//      now or when the engine call still using it ends). Join any thread of the kind after it.
//
//   The provider mutex is ops_.ProviderMutex(); the most recent handle ops_.ServiceHandle().
//   The engine listener record (kEngineListener) is one per kind, in static storage: the engine
//   keeps it by address and may call it at any time while the library is loaded. It forwards
//   to the shared forwarders (provider_common.h) with Kind::Sessions().
//
// Threading: host threads call the operations. Every engine call that passes a session's
// handle holds a lease on the session (see SessionStore), so a concurrent DisconnectDevice or
// DeInit never makes it pass a released handle. No lock of this library is held while the
// engine runs, except the provider mutex around CreateServiceHandler; in particular a handle
// is never released under a lock, so a listener may disconnect or de-initialise from inside a
// notification while the engine's release waits for that notification to end.
#ifndef ORBPERIX_SRC_PROVIDER_SESSION_OPS_H_
#define ORBPERIX_SRC_PROVIDER_SESSION_OPS_H_

#include <array>
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

// "prefix" + "name" as one NUL-terminated array, built at compile time so that each operation
// has its own scope literal without a run-time allocation.
template <size_t A, size_t B>
constexpr std::array<char, A + B - 1> JoinScope(const char (&prefix)[A], const char (&name)[B]) {
    std::array<char, A + B - 1> out{};
    for (size_t i = 0; i + 1 < A; ++i) {
        out[i] = prefix[i];
    }
    for (size_t i = 0; i < B; ++i) {
        out[A - 1 + i] = name[i];
    }
    return out;
}

template <typename Kind>
class SessionOps {
public:
    explicit SessionOps(const EngineLoad& load) noexcept : load_(load) {}
    SessionOps(const SessionOps&) = delete;
    SessionOps& operator=(const SessionOps&) = delete;

    int ConnectDevice(PERIXInfo* deviceInfo);
    int DisconnectDevice(PERIXInfo* deviceInfo);
    // Steps 1 to 3 of RegisterPERIXListener (see the comment at the top).
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

    // The engine listener functions of this kind (engine threads).
    static void OnDeviceChange(void* handle, const void* notify) noexcept;
    static void OnDeviceServiceChange(void* handle, const void* notify) noexcept;
    static void OnDataReceive(void* handle, const void* data) noexcept;
    // Handed to PERIXRegisterListener by address; the same record for every provider of the
    // kind, valid for as long as the library is loaded.
    static const PerixEngineListener kEngineListener;

private:
    const EngineLoad& load_;  // the load the provider was created under (never freed)
    std::mutex mutex_;        // the provider mutex
    std::atomic<void*> serviceHandle_{nullptr};  // most recently created handle
};

}  // namespace OrbPerix

#include "provider/session_ops_impl.h"

#endif  // ORBPERIX_SRC_PROVIDER_SESSION_OPS_H_
