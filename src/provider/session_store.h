// SessionStore: a provider kind's process-wide map from peer device id to its owned session
// record (PerixSessionInfo), in key order.
//
// Threading: every member is safe to call from any thread (host, engine callback, heartbeat).
// The store's own mutex guards only the map and the records in it; it is never held while the
// engine or a host listener runs. Callers therefore never get a pointer into a live record:
// lookups copy out what they need, and removal hands the record over to the caller, who
// releases its engine handle and frees it with no lock held.
#ifndef ORBPERIX_SRC_PROVIDER_SESSION_STORE_H_
#define ORBPERIX_SRC_PROVIDER_SESSION_STORE_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <cstring>
#include <string_view>

#include "provider/base_provider.h"

namespace OrbPerix {

// The session key of a device-information record: its peer device id up to the first NUL.
inline std::string_view PeerDeviceId(const PERIXInfo& info) noexcept {
    return std::string_view(info.peerDeviceId, strnlen(info.peerDeviceId, sizeof(info.peerDeviceId)));
}

// What callers may copy out of a session without allocating.
struct SessionFacts {
    void* serviceHandle = nullptr;
    int32_t serverPort = -1;
    ProviderListener listener = {};
};

class SessionStore {
public:
    using Map = std::map<std::string, PerixSessionInfo*, std::less<>>;

    SessionStore() = default;
    // Frees the records still held when the process unloads the library.
    ~SessionStore();
    SessionStore(const SessionStore&) = delete;
    SessionStore& operator=(const SessionStore&) = delete;

    // Facts of the session under `deviceId`; false when there is none.
    bool Lookup(std::string_view deviceId, SessionFacts* out) const noexcept;
    // Service handle of the session under `deviceId`; null when there is none.
    void* HandleOf(std::string_view deviceId) const noexcept;
    // The first session in key order whose handle is `handle`: its facts and a copy of its
    // device id (`deviceId` may be null). False when none matches or the copy fails.
    bool LookupByHandle(void* handle, SessionFacts* out, std::string* deviceId) const noexcept;
    // Device and service ids of the first session in key order that has both non-empty.
    bool FirstWithService(std::string* deviceId, std::string* serviceId) const noexcept;

    // Sets the service id of the session under `deviceId`; false when there is none (or the
    // copy fails for lack of memory).
    bool SetServiceId(std::string_view deviceId, const std::string& serviceId) noexcept;
    // Marks the session under `deviceId` whose handle is still `handle` connected: stores
    // `serverPort`, then copies `keySize` bytes of `key` into its session key with a bounded
    // copy. Returns the copy's code (0, 22, 34), or kSessionGone when that session no longer
    // exists (a concurrent disconnect of the same peer).
    static constexpr int kSessionGone = -1;
    int MarkConnected(std::string_view deviceId, void* handle, int32_t serverPort,
                      const uint8_t* key, size_t keySize) noexcept;

    // Stores `record` under its device id. A record already under that key is returned to the
    // caller (null when there was none) so that it can be freed outside the lock.
    PerixSessionInfo* Insert(PerixSessionInfo* record) noexcept;
    // Removes the session under `deviceId` from the map and hands it over; *found tells
    // whether the key was present (the returned record may still be null for a null entry).
    PerixSessionInfo* Take(std::string_view deviceId, bool* found) noexcept;
    // Empties the map and hands every entry over, in key order.
    Map TakeAll() noexcept;

    size_t Size() const noexcept;
    bool Contains(std::string_view deviceId) const noexcept;

    // Zeroes a record's session key and frees it. Null is ignored.
    static void Destroy(PerixSessionInfo* record) noexcept;

private:
    mutable std::mutex mutex_;
    Map map_;  // GUARDED_BY(mutex_)
};

}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_PROVIDER_SESSION_STORE_H_
