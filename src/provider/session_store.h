// SessionStore: a provider kind's process-wide map from peer device id to its owned session
// record (PerixSessionInfo), in key order.
//
// Threading: every member is safe to call from any thread (host, engine callback, heartbeat).
// The store's own mutex guards only the map and the records in it; it is never held while the
// engine or a host listener runs. Callers never get a pointer into a live record: lookups copy
// out what they need.
//
// HasHandle, asked on every posted event, answers from a per-thread copy of its last answer
// while the store's generation is unchanged, so that posting threads only read shared memory.
// The generation changes (under the mutex) whenever a session gains or loses its handle.
//
// Handle lifetime: an operation that passes a session's engine handle to the engine holds a
// Lease on the session for the length of that call. Removing a session (disconnect, teardown)
// takes it out of the map at once, so that nothing new can lease it; its handle is released
// exactly once, by whoever ends the last use of it: the remover when no lease is held, else the
// holder of the last lease when it ends. So no engine call ever receives a released handle, and
// nobody waits for anybody (a listener may disconnect from inside a notification).
#ifndef ORBPERIX_SRC_PROVIDER_SESSION_STORE_H_
#define ORBPERIX_SRC_PROVIDER_SESSION_STORE_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "engine/engine_gate.h"
#include "orbperix/orbperix_c.h"
#include "orbperix/records.h"

namespace OrbPerix {

// The C interface's listener of a session (its callbacks and the host's user data). It rides
// with the session, so a C host gets a notification exactly when a C++ host would.
struct HostRoute {
    orbperix_listener callbacks{};
    void* userData = nullptr;
};

// One peer's session, owned by its provider kind's SessionStore. Only the store (under its
// lock) touches a record; other threads work on copies.
struct PerixSessionInfo {
    std::string deviceId;          // the peer device id (key of the store)
    std::string serviceId;         // set by the input provider's OpenButton
    int32_t serverPort = -1;       // -1 = not connected; set by ConnectDevice
    uint8_t sessionKey[128] = {};  // copied on connect, zeroed before the record is freed
    void* serviceHandle = nullptr;
    ProviderListener listener = {};
    HostRoute route;
    // The engine load that created serviceHandle: every call with the handle goes through it.
    const EngineLoad* load = nullptr;
    // Engine calls in flight with serviceHandle; and whether the session was removed meanwhile
    // (the last lease then releases the handle). GUARDED_BY(the store's mutex).
    uint32_t leases = 0;
    bool removed = false;
};

// The session key of a device-information record: its peer device id up to the first NUL.
inline std::string_view PeerDeviceId(const PERIXInfo& info) noexcept {
    return std::string_view(info.peerDeviceId,
                            strnlen(info.peerDeviceId, sizeof(info.peerDeviceId)));
}

// What callers may copy out of a session without allocating.
struct SessionFacts {
    void* serviceHandle = nullptr;
    int32_t serverPort = -1;
    ProviderListener listener = {};
    HostRoute route;
};

class SessionStore {
public:
    using Map = std::map<std::string, PerixSessionInfo*, std::less<>>;

    // A session's handle held for engine calls: while a Lease lives, the handle is not released.
    // Move-only; ends (possibly releasing the handle) when destroyed.
    class Lease {
    public:
        Lease() noexcept = default;
        Lease(Lease&& other) noexcept;
        Lease& operator=(Lease&& other) noexcept;
        ~Lease();
        Lease(const Lease&) = delete;
        Lease& operator=(const Lease&) = delete;

        explicit operator bool() const noexcept { return record_ != nullptr; }
        void* Handle() const noexcept { return handle_; }
        const EngineLoad& Load() const noexcept { return *load_; }

    private:
        friend class SessionStore;
        Lease(SessionStore* store, PerixSessionInfo* record) noexcept;
        void End() noexcept;

        SessionStore* store_ = nullptr;
        PerixSessionInfo* record_ = nullptr;
        void* handle_ = nullptr;
        const EngineLoad* load_ = nullptr;
    };

    SessionStore() noexcept;
    SessionStore(const SessionStore&) = delete;
    SessionStore& operator=(const SessionStore&) = delete;

    // Facts of the session under `deviceId`; false when there is none.
    bool Lookup(std::string_view deviceId, SessionFacts* out) const noexcept;
    // Whether a session with an engine handle exists under `deviceId`. Takes no lock when the
    // calling thread asked the same of this store since the last change of handles.
    bool HasHandle(std::string_view deviceId) const noexcept;
    // A lease on the session under `deviceId`, when it exists with a handle (facts copied to
    // `facts` when not null); empty otherwise.
    Lease Acquire(std::string_view deviceId, SessionFacts* facts = nullptr) noexcept;
    // A lease on the first session in key order whose handle is `handle`; empty when none.
    Lease AcquireByHandle(void* handle) noexcept;
    // The first session in key order whose handle is `handle`: its facts and a copy of its
    // device id (`deviceId` may be null). False when none matches or the copy fails; in the
    // latter case `*noMemory` (when given) is set.
    bool LookupByHandle(void* handle, SessionFacts* out, std::string* deviceId,
                        bool* noMemory = nullptr) const noexcept;
    // Device and service ids of the first session in key order that has both non-empty.
    bool FirstWithService(std::string* deviceId, std::string* serviceId) const noexcept;

    // Sets the service id of the session under `deviceId`; false when there is none or the
    // copy fails for lack of memory (then `*noMemory`, when given, is set).
    bool SetServiceId(std::string_view deviceId, const std::string& serviceId,
                      bool* noMemory = nullptr) noexcept;
    // Marks the session under `deviceId` whose handle is still `handle` connected: stores
    // `serverPort`, then copies `keySize` bytes of `key` into its session key with a bounded
    // copy. Returns the copy's code (0, 22, 34), or kSessionGone when that session no longer
    // exists (a concurrent disconnect of the same peer).
    static constexpr int kSessionGone = -1;
    int MarkConnected(std::string_view deviceId, void* handle, int32_t serverPort,
                      const uint8_t* key, size_t keySize) noexcept;

    // Reserves `deviceId` for a session being created: false when a session with a handle is
    // already there. A reserved entry has no handle (operations see "not registered").
    enum class Reservation { kReserved, kExists, kNoMemory };
    Reservation Reserve(std::string_view deviceId) noexcept;
    // Completes a reservation with the created handle and what the session keeps. False when
    // the reservation was removed meanwhile (a concurrent disconnect or teardown): the caller
    // then still owns `handle` and releases it.
    bool Complete(std::string_view deviceId, void* handle, const EngineLoad& load,
                  const ProviderListener& listener, const HostRoute& route) noexcept;
    // Drops a reservation that will not be completed.
    void Abandon(std::string_view deviceId) noexcept;

    // Removes the session under `deviceId`; false when the key is absent. Its handle is
    // released now (through its load, on this thread) unless a lease holds it, in which case
    // the last lease releases it.
    bool Remove(std::string_view deviceId) noexcept;
    // Removes every session, releasing handles in key order as Remove does.
    void RemoveAll() noexcept;

private:
    // REQUIRES: mutex_ held. Hands the record over for release when no lease holds it.
    PerixSessionInfo* Detach(PerixSessionInfo* record) noexcept;
    // Releases the record's handle through its load and frees it; no lock held.
    static void Retire(PerixSessionInfo* record) noexcept;
    void EndLease(PerixSessionInfo* record) noexcept;

    // REQUIRES: mutex_ held. Marks a change of the sessions that have a handle.
    void Changed() noexcept;

    mutable std::mutex mutex_;
    Map map_;  // GUARDED_BY(mutex_)
    // Written under mutex_ by Changed, read without it by HasHandle; on a line of its own so
    // that lock traffic does not evict it from the readers' caches. Values are unique in the
    // process (a store built where another was gets a new one).
    alignas(64) std::atomic<uint64_t> generation_;
};

}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_PROVIDER_SESSION_STORE_H_
