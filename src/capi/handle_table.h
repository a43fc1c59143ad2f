// The C interface's handle table: every object a C host holds (providers, cast sessions) is
// named by a number, never by its address.
//
// A handle packs the object's kind (top 8 bits), its slot's generation (next 24 bits) and its
// slot index plus one (low 32 bits). Removing an object bumps its slot's generation, so the old
// number never names the slot's next occupant (until the 24-bit generation wraps, after 16.7
// million reuses of one slot). 0 is never a handle. The table has a fixed number of slots
// (kSlots); Add fails when all are taken.
//
// Thread-safe. The per-call path (Acquire and the end of a Use) takes no lock: each slot keeps
// its generation, kind and a "dying" bit in one atomic word. Where the platform has an
// asymmetric barrier, a thread announces its Use (its handle) in its record of an Announcements
// registry (the first kThreadRecords threads get one, kNested Uses deep) and then checks the
// slot's word; Remove sets the dying bit, flushes (after which every thread either sees the bit
// or has its announcement visible) and counts the announcements of the handle. Elsewhere, past those limits, a
// Use is counted in the slot's word by a compare-and-swap that succeeds only while the word
// still names the same live generation. Add and Remove (create and destroy, rare) take the
// table's mutex. Remove marks the slot dying (no new Use) and waits until the Uses of other
// threads on it have ended,
// so that the caller (destroy) can drop the object knowing no call is still running on it; a
// Use that ends on a dying slot takes the mutex to wake it. A Use held by the removing thread
// itself (destroy from inside a listener that the same call triggered) cannot be waited for:
// the slot then keeps the object until that Use ends, and it dies there. No host code and no
// library operation runs under the mutex.
#ifndef ORBPERIX_SRC_CAPI_HANDLE_TABLE_H_
#define ORBPERIX_SRC_CAPI_HANDLE_TABLE_H_

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

#include "util/announcements.h"

namespace OrbPerix {
namespace capi {

enum class HandleKind : uint8_t { kFree = 0, kInput = 1, kSource = 2, kSink = 3, kCastSession = 4 };

class HandleTable {
public:
    static constexpr uint32_t kSlots = 4096;
    static constexpr uint32_t kNested = 8;
    using Registry = Announcements<kNested>;  // a thread's words: its announced handles, 0 = none
    static constexpr uint32_t kThreadRecords = Registry::kRecords;
    static constexpr uint32_t kCounted = ~0u;  // a Use counted in its slot, not announced

    // The process-wide table; never destroyed, so that calls at process exit stay safe.
    static HandleTable& Instance() noexcept;

    // One call's hold on a live handle's object. Move-only; empty when the handle was dead.
    class Use {
    public:
        Use() noexcept = default;
        Use(Use&& other) noexcept;
        Use& operator=(Use&&) = delete;
        ~Use();
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        explicit operator bool() const noexcept { return object_ != nullptr; }
        void* Object() const noexcept { return object_; }

    private:
        friend class HandleTable;
        Use(HandleTable* table, uint32_t index, void* object, Registry::Record* record,
            uint32_t announced) noexcept;

        HandleTable* table_ = nullptr;
        uint32_t index_ = 0;
        void* object_ = nullptr;
        Registry::Record* record_ = nullptr;  // this thread's record, when announced
        uint32_t announced_ = kCounted;  // the position in that record, or kCounted
        const Use* outer_ = nullptr;  // the Use this thread held before this one
    };

    // Stores `object` and returns its handle; 0 when every slot is taken.
    uint64_t Add(HandleKind kind, std::shared_ptr<void> object) noexcept;
    // A Use of the object of a live handle of `kind`; empty for 0, unknown, stale, other-kind
    // or dying handles. Lock-free.
    Use Acquire(uint64_t handle, HandleKind kind) noexcept;
    // Takes the object out (the handle is dead from now on) once no other thread uses it;
    // empty as for Acquire.
    std::shared_ptr<void> Remove(uint64_t handle, HandleKind kind) noexcept;

private:
    struct Slot {
        // generation (bits 40-63) | kind (32-39) | dying (31) | counted Uses (0-30).
        std::atomic<uint64_t> state{0};
        void* raw = nullptr;               // the object; written before state publishes it
        std::shared_ptr<void> object;      // GUARDED_BY(mutex_)
        uint32_t generation = 1;           // GUARDED_BY(mutex_); the next one to hand out
        bool freeOnLastUse = false;        // GUARDED_BY(mutex_)
    };
    // Uses of `handle` (in `slot`) in flight, counted and announced. Announcements are complete
    // only once the barrier ran after the dying bit was set.
    uint32_t UsesOf(const Slot& slot, uint64_t handle) const noexcept;
    // REQUIRES: mutex_ held. Frees a slot for reuse; returns its object.
    std::shared_ptr<void> Free(Slot& slot) noexcept;
    void EndUse(uint32_t index, Registry::Record* record, uint32_t announced) noexcept;

    std::mutex mutex_;
    std::condition_variable usesEnded_;
    uint32_t nextFree_ = 0;  // GUARDED_BY(mutex_); where Add starts looking
    Registry announcements_;  // prepared by the first Add (under mutex_)
    Slot slots_[kSlots];
};

}  // namespace capi
}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_CAPI_HANDLE_TABLE_H_
