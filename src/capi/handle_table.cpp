#include "capi/handle_table.h"

#include <utility>

#include "util/no_destructor.h"

namespace OrbPerix {
namespace capi {

namespace {

constexpr uint32_t kGenerationMask = 0xFFFFFFu;
constexpr uint64_t kUsesMask = 0x7FFFFFFFu;
constexpr uint64_t kDying = uint64_t{1} << 31;

uint64_t MakeHandle(HandleKind kind, uint32_t generation, uint32_t index) noexcept {
    return (static_cast<uint64_t>(kind) << 56) |
           (static_cast<uint64_t>(generation & kGenerationMask) << 32) |
           (static_cast<uint64_t>(index) + 1u);
}

// A slot's state word for a live object of `kind` and `generation`, no Use, not dying.
uint64_t LiveState(HandleKind kind, uint32_t generation) noexcept {
    return (static_cast<uint64_t>(generation & kGenerationMask) << 40) |
           (static_cast<uint64_t>(kind) << 32);
}

// The state word a handle names (Uses and the dying bit cleared).
uint64_t NamedState(uint64_t handle) noexcept {
    return LiveState(static_cast<HandleKind>(handle >> 56),
                     static_cast<uint32_t>(handle >> 32) & kGenerationMask);
}

constexpr uint64_t kIdentityMask = ~(kUsesMask | kDying);

// The innermost Use held by this thread (a chain through the Uses on its stack).
thread_local const HandleTable::Use* t_innermost = nullptr;

}  // namespace

HandleTable& HandleTable::Instance() noexcept {
    // Engine and host threads may still use handles while static objects are destroyed at exit.
    static NoDestructor<HandleTable> table;
    return *table;
}

// ---- Use ----

HandleTable::Use::Use(HandleTable* table, uint32_t index, void* object) noexcept
    : table_(table), index_(index), object_(object), outer_(t_innermost) {
    t_innermost = this;
}

HandleTable::Use::Use(Use&& other) noexcept
    : table_(other.table_), index_(other.index_), object_(other.object_), outer_(other.outer_) {
    if (object_ != nullptr && t_innermost == &other) {
        t_innermost = this;
    }
    other.object_ = nullptr;
}

HandleTable::Use::~Use() {
    if (object_ == nullptr) {
        return;
    }
    if (t_innermost == this) {
        t_innermost = outer_;
    }
    table_->EndUse(index_);
}

// ---- Table ----

uint64_t HandleTable::Add(HandleKind kind, std::shared_ptr<void> object) noexcept {
    std::lock_guard<std::mutex> lock(mutex_);
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
        slot.state.store(LiveState(kind, slot.generation), std::memory_order_release);
        nextFree_ = (index + 1) % kSlots;
        return MakeHandle(kind, slot.generation, index);
    }
    return 0;
}

HandleTable::Use HandleTable::Acquire(uint64_t handle, HandleKind kind) noexcept {
    const uint64_t low = handle & 0xFFFFFFFFu;
    if (low == 0 || low > kSlots || static_cast<HandleKind>(handle >> 56) != kind ||
        kind == HandleKind::kFree) {
        return Use();
    }
    const uint32_t index = static_cast<uint32_t>(low - 1);
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
    return Use(this, index, slot.raw);
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

void HandleTable::EndUse(uint32_t index) noexcept {
    Slot& slot = slots_[index];
    const uint64_t before = slot.state.fetch_sub(1, std::memory_order_acq_rel);
    if ((before & kDying) == 0) {
        return;  // the common case: no lock
    }
    std::shared_ptr<void> last;
    {
        // Under the mutex, so that a Remove waiting on the condition cannot miss the wake-up.
        std::lock_guard<std::mutex> lock(mutex_);
        if (slot.freeOnLastUse && (slot.state.load(std::memory_order_acquire) & kUsesMask) == 0) {
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
    uint64_t own = 0;
    for (const Use* use = t_innermost; use != nullptr; use = use->outer_) {
        own += use->table_ == this && use->index_ == index ? 1 : 0;
    }
    usesEnded_.wait(lock, [&] {
        return (slot.state.load(std::memory_order_acquire) & kUsesMask) == own;
    });
    if (own == 0) {
        return Free(slot);
    }
    // The calling thread still uses it further up its stack: the last Use frees the slot.
    slot.freeOnLastUse = true;
    return slot.object;
}

}  // namespace capi
}  // namespace OrbPerix
