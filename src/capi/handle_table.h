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
// or has its announcement visible) and counts the announcements of the handle. Elsewhere, past
// those limits, a Use is counted in the slot's word by a compare-and-swap that succeeds only
// while the word still names the same live generation. Add and Remove (create and destroy,
// rare) take the table's mutex. Remove marks the slot dying (no new Use) and waits until the
// Uses of other threads on it have ended, so that the caller (destroy) can drop the object
// knowing no call is still running on it; a Use that ends on a dying slot takes the mutex to
// wake it. A Use held by
// the removing thread itself (destroy from inside a listener that the same call triggered)
// cannot be waited for: the slot then keeps the object until that Use ends, and it dies there.
// No host code and no library operation runs under the mutex.
//
// The end of an announced Use is inline (every C call ends one) and touches no thread-local
// variable: the Use keeps its record. Counted Uses are chained through a thread-local pointer,
// announced ones are found in the records their thread's ticket owns, so Remove knows its own.
#ifndef ORBPERIX_SRC_CAPI_HANDLE_TABLE_H_
#define ORBPERIX_SRC_CAPI_HANDLE_TABLE_H_

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

#include "util/announcements.h"
#include "util/no_destructor.h"

namespace OrbPerix {
namespace capi {

enum class HandleKind : uint8_t { kFree = 0, kInput = 1, kSource = 2, kSink = 3, kCastSession = 4 };

// Announced Uses: a thread's words are the handles it uses (0: none), kNested deep.
using AnnouncedUses = Announcements<8>;
using ThreadRecord = AnnouncedUses::Record;
// This thread's ticket in the table it last used (read inline by Acquire).
extern thread_local AnnouncedUses::Ticket t_useTicket;

class HandleTable {
public:
    static constexpr uint32_t kSlots = 4096;
    static constexpr uint32_t kThreadRecords = AnnouncedUses::kRecords;
    static constexpr uint32_t kNested = 8;
    static constexpr uint32_t kGenerationMask = 0xFFFFFFu;  // 24-bit slot generations

    // One call's hold on a live handle's object. Move-only; empty when the handle was dead.
    class Use {
    public:
        Use() noexcept = default;
        Use(Use&& other) noexcept;
        Use& operator=(Use&&) = delete;
        ~Use() {
            if (object_ != nullptr) {
                table_->EndUse(*this);
            }
        }
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        explicit operator bool() const noexcept { return object_ != nullptr; }
        void* Object() const noexcept { return object_; }

    private:
        friend class HandleTable;
        // `record` null: a Use counted in the slot, chained as this thread's innermost one.
        Use(HandleTable* table, uint64_t handle, uint32_t index, void* object,
            ThreadRecord* record, uint32_t position) noexcept
            : table_(table),
              object_(object),
              handle_(handle),
              index_(index),
              position_(position),
              record_(record) {
            if (record_ == nullptr) {
                LinkCounted();
            }
        }
        void LinkCounted() noexcept;

        HandleTable* table_ = nullptr;
        void* object_ = nullptr;
        uint64_t handle_ = 0;
        uint32_t index_ = 0;
        uint32_t position_ = 0;            // the entry in record_
        ThreadRecord* record_ = nullptr;   // this thread's record; null: counted
        const Use* outer_ = nullptr;  // counted only: the counted Use this thread held before
    };

    // The process-wide table; never destroyed, so that calls at process exit stay safe.
    static HandleTable& Instance() noexcept {
        // Engine and host threads may still use handles while static objects are destroyed.
        static NoDestructor<HandleTable> table;
        return *table;
    }

    // Stores `object` and returns its handle; 0 when every slot is taken.
    uint64_t Add(HandleKind kind, std::shared_ptr<void> object) noexcept;
    // A Use of the object of a live handle of `kind`; empty for 0, unknown, stale, other-kind
    // or dying handles. Lock-free; the announced path (every C call) is inline.
    Use Acquire(uint64_t handle, HandleKind kind) noexcept {
        const uint64_t low = handle & 0xFFFFFFFFu;
        if (low == 0 || low > kSlots || static_cast<HandleKind>(handle >> 56) != kind ||
            kind == HandleKind::kFree) {
            return Use();
        }
        const uint32_t index = static_cast<uint32_t>(low - 1);
        ThreadRecord* record = OwnRecord();
        if (record == nullptr || record->depth >= kNested) {
            return AcquireCounted(handle, index);
        }
        // Announce, then look: Remove sets the dying bit, then flushes, then reads the
        // announcements, so either it sees this one or this load sees the bit.
        const uint32_t position = record->depth;
        AnnouncedUses::Announce(record->words[position], handle);
        Slot& slot = slots_[index];
        const uint64_t state = slot.state.load(std::memory_order_acquire);
        if ((state & (kIdentityMask | kDying)) != NamedState(handle)) {
            TakeBack(record, position, state, handle);
            return Use();
        }
        record->depth = position + 1;
        return Use(this, handle, index, slot.raw, record, position);
    }
    // Takes the object out (the handle is dead from now on) once no other thread uses it;
    // empty as for Acquire.
    std::shared_ptr<void> Remove(uint64_t handle, HandleKind kind) noexcept;

private:
    // The parts of a slot's state word (see Slot::state).
    static constexpr uint64_t kUsesMask = 0x7FFFFFFFu;
    static constexpr uint64_t kDying = uint64_t{1} << 31;
    static constexpr uint64_t kIdentityMask = ~(kUsesMask | kDying);

    struct Slot {
        // generation (bits 40-63) | kind (32-39) | dying (31) | counted Uses (0-30).
        std::atomic<uint64_t> state{0};
        void* raw = nullptr;               // the object; written before state publishes it
        std::shared_ptr<void> object;      // GUARDED_BY(mutex_)
        uint32_t generation = 1;           // GUARDED_BY(mutex_); the next one to hand out
        bool freeOnLastUse = false;        // GUARDED_BY(mutex_)
    };

    // The state word a handle names (a live slot's word): its generation and kind, no Use, not
    // dying.
    static uint64_t NamedState(uint64_t handle) noexcept {
        return (((handle >> 32) & kGenerationMask) << 40) | ((handle >> 56) << 32);
    }

    // This thread's record, or null (no light path, or no record left for it).
    ThreadRecord* OwnRecord() noexcept {
        return announcements_.Light() ? announcements_.Own(t_useTicket) : nullptr;
    }
    // Acquire's path without an announcement: the Use is counted in the slot.
    Use AcquireCounted(uint64_t handle, uint32_t index) noexcept;
    // Takes back an announcement that met another occupant or the dying bit (`state`).
    void TakeBack(ThreadRecord* record, uint32_t position, uint64_t state,
                  uint64_t handle) noexcept;
    // Uses of `handle` (in `slot`) in flight, counted and announced. Announcements are complete
    // only once the barrier ran after the dying bit was set.
    uint32_t UsesOf(const Slot& slot, uint64_t handle) const noexcept;
    // Uses of `handle` (slot `index`) held by the calling thread.
    uint32_t OwnUsesOf(uint64_t handle, uint32_t index) const noexcept;
    // REQUIRES: mutex_ held. Frees a slot for reuse; returns its object.
    std::shared_ptr<void> Free(Slot& slot) noexcept;

    // The end of `use`: for an announced one, a release store and a look at the dying bit.
    void EndUse(const Use& use) noexcept {
        if (use.record_ == nullptr) {
            EndCounted(use);
            return;
        }
        // What this Use did happens before a Remove that reads the withdrawn word.
        AnnouncedUses::Withdraw(use.record_->words[use.position_], 0);
        use.record_->depth = use.position_;
        std::atomic_signal_fence(std::memory_order_seq_cst);
        if ((slots_[use.index_].state.load(std::memory_order_acquire) & kDying) != 0) {
            UseEndedOnDying(use.index_, use.handle_);
        }
    }
    void EndCounted(const Use& use) noexcept;
    // A Use of `handle` ended while its slot is dying: wakes Remove, or frees the slot when it
    // was removed from inside this thread's own call.
    void UseEndedOnDying(uint32_t index, uint64_t handle) noexcept;

    std::mutex mutex_;
    std::condition_variable usesEnded_;
    uint32_t nextFree_ = 0;  // GUARDED_BY(mutex_); where Add starts looking
    AnnouncedUses announcements_;  // prepared by the first Add (under mutex_)
    Slot slots_[kSlots];
};

}  // namespace capi
}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_CAPI_HANDLE_TABLE_H_
