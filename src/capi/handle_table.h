// The C interface's handle table: every object a C host holds (providers, cast sessions) is
// named by a number, never by its address.
//
// A handle packs the object's kind (top 8 bits), its slot's generation (next 24 bits) and its
// slot index plus one (low 32 bits). Removing an object bumps its slot's generation, so the old
// number never names the slot's next occupant (until the 24-bit generation wraps, after 16.7
// million reuses of one slot). 0 is never a handle.
//
// Thread-safe: one mutex guards the table; Find hands out a shared reference, so an object
// stays alive until the call that found it has finished even if another thread removes it
// meanwhile. No host code and no library operation runs under the mutex.
#ifndef ORBPERIX_SRC_CAPI_HANDLE_TABLE_H_
#define ORBPERIX_SRC_CAPI_HANDLE_TABLE_H_

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace OrbPerix {
namespace capi {

enum class HandleKind : uint8_t { kFree = 0, kInput = 1, kSource = 2, kSink = 3, kCastSession = 4 };

class HandleTable {
public:
    // The process-wide table; never destroyed, so that calls at process exit stay safe.
    static HandleTable& Instance() noexcept;

    // Stores `object` and returns its handle; 0 when the table cannot grow (no memory).
    uint64_t Add(HandleKind kind, std::shared_ptr<void> object) noexcept;
    // The object of a live handle of `kind`; empty for 0, unknown, stale or other-kind handles.
    std::shared_ptr<void> Find(uint64_t handle, HandleKind kind) noexcept;
    // Takes the object out (the handle is dead from now on); empty as for Find.
    std::shared_ptr<void> Remove(uint64_t handle, HandleKind kind) noexcept;

private:
    struct Slot {
        uint32_t generation = 1;
        HandleKind kind = HandleKind::kFree;
        std::shared_ptr<void> object;
    };
    // REQUIRES: mutex_ held. The slot a live handle of `kind` names, or null.
    Slot* Locate(uint64_t handle, HandleKind kind) noexcept;

    std::mutex mutex_;
    std::vector<Slot> slots_;        // GUARDED_BY(mutex_)
    std::vector<uint32_t> freeList_; // GUARDED_BY(mutex_)
};

}  // namespace capi
}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_CAPI_HANDLE_TABLE_H_
