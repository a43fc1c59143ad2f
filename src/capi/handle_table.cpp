#include "capi/handle_table.h"

#include <utility>


namespace OrbPerix {
namespace capi {

namespace {

uint64_t MakeHandle(HandleKind kind, uint32_t generation, uint32_t index) noexcept {
    return (static_cast<uint64_t>(kind) << 56) |
           (static_cast<uint64_t>(generation & HandleTable::kGenerationMask) << 32) |
           (static_cast<uint64_t>(index) + 1u);
}

// The innermost counted Use held by this thread (a chain through the counted Uses on its stack).
thread_local const HandleTable::Use* t_innermost = nullptr;

}  // namespace

// One table serves the process; tests make tables of their own.
thread_local AnnouncedUses::Ticket t_useTicket{0, nullptr};

// ---- Use ----

void HandleTable::Use::LinkCounted() noexcept {
    outer_ = t_innermost;
    t_innermost = this;
}

HandleTable::Use::Use(Use&& other) noexcept
    : table_(other.table_),
      object_(other.object_),
      handle_(other.handle_),
      index_(other.index_),
      position_(other.position_),
      record_(other.record_),
      outer_(other.outer_) {
    if (object_ != nullptr && record_ == nullptr && t_innermost == &other) {
        t_innermost = this;
    }
    other.object_ = nullptr;
}

// ---- Table ----

uint32_t HandleTable::UsesOf(const Slot& slot, uint64_t handle) const noexcept {
    const uint32_t counted =
        static_cast<uint32_t>(slot.state.load(std::memory_order_acquire) & kUsesMask);
    return counted + static_cast<uint32_t>(announcements_.Sum(
                         [handle](uint64_t announced) { return announced == handle ? 1u : 0u; }));
}

uint32_t HandleTable::OwnUsesOf(uint64_t handle, uint32_t index) const noexcept {
    // Announced: in the records this thread's ticket claimed (more than one only when it went
    // between tables). A record that a finished thread left behind holds no Use.
    uint32_t own = static_cast<uint32_t>(announcements_.Sum(
        [handle](uint64_t announced) { return announced == handle ? 1u : 0u; }, &t_useTicket));
    for (const Use* use = t_innermost; use != nullptr; use = use->outer_) {
        own += use->table_ == this && use->index_ == index ? 1u : 0u;
    }
    return own;
}

uint64_t HandleTable::Add(HandleKind kind, std::shared_ptr<void> object) noexcept {
    std::lock_guard<std::mutex> lock(mutex_);
    announcements_.Prepare();
    for (uint32_t n = 0; n < kSlots; ++n) {
        const uint32_t index = (nextFree_ + n) % kSlots;
        Slot& slot = slots_[index];
        if (slot.object != nullptr || slot.state.load(std::memory_order_relaxed) != 0) {
            continue;
        }
        slot.raw = object.get();
        slot.object = std::move(object);
        slot.freeOnLastUse = false;
        // Publishes raw to the Acquire that sees this state.
        const uint64_t handle = MakeHandle(kind, slot.generation, index);
        slot.state.store(NamedState(handle), std::memory_order_release);
        nextFree_ = (index + 1) % kSlots;
        return handle;
    }
    return 0;
}

void HandleTable::TakeBack(ThreadRecord* record, uint32_t position, uint64_t state,
                           uint64_t handle) noexcept {
    AnnouncedUses::Withdraw(record->words[position], 0);
    if ((state & kIdentityMask) == NamedState(handle)) {
        // A Remove of this handle may have counted the announcement and be waiting: taking it
        // back is the end of a use, so the remover is woken as for one.
        std::lock_guard<std::mutex> lock(mutex_);
        usesEnded_.notify_all();
    }
}

HandleTable::Use HandleTable::AcquireCounted(uint64_t handle, uint32_t index) noexcept {
    Slot& slot = slots_[index];
    const uint64_t named = NamedState(handle);
    uint64_t state = slot.state.load(std::memory_order_acquire);
    do {
        // Another generation or kind, a free slot, or a dying one: no new Use.
        if ((state & kIdentityMask) != named || (state & kDying) != 0 ||
            (state & kUsesMask) == kUsesMask) {
            return Use();
        }
    } while (!slot.state.compare_exchange_weak(state, state + 1, std::memory_order_acquire,
                                               std::memory_order_acquire));
    return Use(this, handle, index, slot.raw, nullptr, 0);
}

std::shared_ptr<void> HandleTable::Free(Slot& slot) noexcept {
    std::shared_ptr<void> object = std::move(slot.object);
    slot.raw = nullptr;
    slot.freeOnLastUse = false;
    slot.generation = (slot.generation + 1) & kGenerationMask;
    if (slot.generation == 0) {
        slot.generation = 1;
    }
    // State 0: free; no handle names generation 0, so no Acquire matches it.
    slot.state.store(0, std::memory_order_release);
    return object;
}

void HandleTable::EndCounted(const Use& use) noexcept {
    if (t_innermost == &use) {
        t_innermost = use.outer_;
    }
    const uint64_t before = slots_[use.index_].state.fetch_sub(1, std::memory_order_acq_rel);
    if ((before & kDying) != 0) {
        UseEndedOnDying(use.index_, use.handle_);
    }
}

void HandleTable::UseEndedOnDying(uint32_t index, uint64_t handle) noexcept {
    Slot& slot = slots_[index];
    std::shared_ptr<void> last;
    {
        // Under the mutex, so that a Remove waiting on the condition cannot miss the wake-up.
        std::lock_guard<std::mutex> lock(mutex_);
        if (slot.freeOnLastUse && UsesOf(slot, handle) == 0) {
            // Removed from inside this very call: the object dies here, after the call.
            last = Free(slot);
        }
    }
    usesEnded_.notify_all();
    last.reset();  // outside the lock: the destructor may call the engine
}

std::shared_ptr<void> HandleTable::Remove(uint64_t handle, HandleKind kind) noexcept {
    const uint64_t low = handle & 0xFFFFFFFFu;
    if (low == 0 || low > kSlots || static_cast<HandleKind>(handle >> 56) != kind ||
        kind == HandleKind::kFree) {
        return std::shared_ptr<void>();
    }
    const uint32_t index = static_cast<uint32_t>(low - 1);
    Slot& slot = slots_[index];
    const uint64_t named = NamedState(handle);
    std::unique_lock<std::mutex> lock(mutex_);
    uint64_t state = slot.state.load(std::memory_order_acquire);
    do {
        if ((state & kIdentityMask) != named || (state & kDying) != 0) {
            return std::shared_ptr<void>();
        }
    } while (!slot.state.compare_exchange_weak(state, state | kDying, std::memory_order_acq_rel,
                                               std::memory_order_acquire));
    // Every thread now sees the dying bit, or its announcement is visible here.
    announcements_.Flush();
    const uint32_t own = OwnUsesOf(handle, index);
    usesEnded_.wait(lock, [&] { return UsesOf(slot, handle) == own; });
    if (own == 0) {
        return Free(slot);
    }
    // The calling thread still uses it further up its stack: the last Use frees the slot.
    slot.freeOnLastUse = true;
    return slot.object;
}

}  // namespace capi
}  // namespace OrbPerix
