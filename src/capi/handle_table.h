// The C interface's handle table: every object a C host holds (providers, cast sessions) is
// named by a number, never by its address.
//
// A handle packs the object's kind (top 8 bits), its slot's generation (next 24 bits) and its
// slot index plus one (low 32 bits). Removing an object bumps its slot's generation, so the old
// number never names the slot's next occupant (until the 24-bit generation wraps, after 16.7
// million reuses of one slot). 0 is never a handle.
//
// Thread-safe: one mutex guards the table. A call on a handle holds a Use for its length;
// Remove waits until the Uses of other threads on that handle have ended, so that the caller
// (destroy) can drop the object knowing no call is still running on it. A Use held by the
// removing thread itself (destroy from inside a listener that the same call triggered) cannot
// be waited for: the slot then keeps the object until that Use ends, and it dies there. No host
// code and no library operation runs under the mutex.
#ifndef ORBPERIX_SRC_CAPI_HANDLE_TABLE_H_
#define ORBPERIX_SRC_CAPI_HANDLE_TABLE_H_

#include <condition_variable>
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
        Use(HandleTable* table, uint32_t index, void* object) noexcept;

        HandleTable* table_ = nullptr;
        uint32_t index_ = 0;
        void* object_ = nullptr;
        const Use* outer_ = nullptr;  // the Use this thread held before this one
    };

    // Stores `object` and returns its handle; 0 when the table cannot grow (no memory).
    uint64_t Add(HandleKind kind, std::shared_ptr<void> object) noexcept;
    // A Use of the object of a live handle of `kind`; empty for 0, unknown, stale, other-kind
    // or dying handles.
    Use Acquire(uint64_t handle, HandleKind kind) noexcept;
    // Takes the object out (the handle is dead from now on) once no other thread uses it;
    // empty as for Acquire.
    std::shared_ptr<void> Remove(uint64_t handle, HandleKind kind) noexcept;

private:
    struct Slot {
        uint32_t generation = 1;
        HandleKind kind = HandleKind::kFree;
        bool dying = false;   // being removed: no new Use
        bool freeOnLastUse = false;  // removed from inside a Use of the removing thread
        uint32_t uses = 0;    // Uses in flight
        std::shared_ptr<void> object;
    };
    // REQUIRES: mutex_ held. The slot a live handle of `kind` names, or null.
    Slot* Locate(uint64_t handle, HandleKind kind) noexcept;
    // REQUIRES: mutex_ held. Frees a slot for reuse; returns its object.
    std::shared_ptr<void> Free(Slot& slot) noexcept;
    void EndUse(uint32_t index) noexcept;

    std::mutex mutex_;
    std::condition_variable usesEnded_;
    std::vector<Slot> slots_;         // GUARDED_BY(mutex_)
    std::vector<uint32_t> freeList_;  // GUARDED_BY(mutex_)
};

}  // namespace capi
}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_CAPI_HANDLE_TABLE_H_
