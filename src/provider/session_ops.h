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
//   2. Give the provider a member `SessionOps<SourceKind> ops_{handler};` (constructed from
//      the main handler table copy) and forward the shared virtual operations to it:
//      ConnectDevice, DisconnectDevice, UnRegisterListener, RegisterDataListener,
//      UnRegisterDataListener, SendData, SendDataNoResult, SendBinaryData,
//      StartDeviceService, StopDeviceService, RegisterEventCallback, SendByHandler.
//
//   3. RegisterPERIXListener: call ops_.RegisterPERIXListenerSteps(deviceInfo, listener)
//      (the initialised check, CreateServiceHandler under the provider mutex, and
//      PERIXRegisterListener with the kind's OnDeviceChange/OnDeviceServiceChange/
//      OnDataReceive). When it returns non-zero, return that. Otherwise register the kind's
//      own channel callbacks (input: the button callback; source: audio, then refresh) with
//      the kind's own messages, and return 0.
//
//   4. DeInit: test and clear the kind's flag yourself (step 1), then call
//      ops_.TearDownSessions() (locks the provider mutex, releases every session's handle,
//      frees the records, empties the store). Join any thread of the kind after it.
//
//   The provider mutex is ops_.ProviderMutex(); the most recent handle ops_.ServiceHandle().
//   The engine callbacks to register are SessionOps<Kind>::OnDeviceChange etc.; they forward
//   to BaseProvider with Kind::Sessions().
//
// Threading: host threads call the operations. The store's lock is never held while the
// engine runs; the provider mutex is taken by ConnectDevice, DisconnectDevice, teardown and
// around CreateServiceHandler, exactly where the provider's single mutex is taken.
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
#include "provider/base_provider.h"
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
    explicit SessionOps(const OrbPERIXHandler& handler) noexcept;
    SessionOps(const SessionOps&) = delete;
    SessionOps& operator=(const SessionOps&) = delete;

    int ConnectDevice(PERIXInfo* deviceInfo);
    int DisconnectDevice(PERIXInfo* deviceInfo);
    // Steps 1 to 3 of RegisterPERIXListener (see the comment at the top).
    int RegisterPERIXListenerSteps(PERIXInfo* deviceInfo, ProviderListener* listener);
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
    int CreateServiceHandler(PERIXInfo* deviceInfo, ProviderListener* listener, void** out);
    // DeInit's teardown: under the provider mutex, takes every session out of the store,
    // releases each non-null handle through PERIXReleaseServiceHandle in key order and frees
    // the records.
    void TearDownSessions();

    std::mutex& ProviderMutex() noexcept { return mutex_; }
    void* ServiceHandle() const noexcept { return serviceHandle_.load(std::memory_order_relaxed); }
    const OrbPERIXHandler& Handler() const noexcept { return handler_; }

    // The engine listener functions of this kind (engine threads).
    static void OnDeviceChange(void* handle, const void* notify);
    static void OnDeviceServiceChange(void* handle, const void* notify);
    static void OnDataReceive(void* handle, const void* data);

private:
    const OrbPERIXHandler handler_;
    PerixEngineListener engineListener_{};  // handed to PERIXRegisterListener by address
    std::mutex mutex_;                      // the provider mutex
    std::atomic<void*> serviceHandle_{nullptr};  // most recently created handle
};

}  // namespace OrbPerix

#include "provider/session_ops_impl.h"

#endif  // ORBPERIX_SRC_PROVIDER_SESSION_OPS_H_
