#include "capi/handle_table.h"

#include <utility>

#include "platform/platform.h"
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
// This thread's announcement record. (One table serves the process; a thread that turns to
// another table, as tests do, claims a record there.)
thread_local HandleTable::Registry::Ticket t_ticket{nullptr, 0};

}  // namespace

HandleTable& HandleTable::Instance() noexcept {
    // Engine and host threads may still use handles while static objects are destroyed at exit.
    static NoDestructor<HandleTable> table;
    return *table;
}

// ---- Use ----

HandleTable::Use::Use(HandleTable* table, uint32_t index, void* object,
                      Registry::Record* record, uint32_t announced) noexcept
    : table_(table),
      index_(index),
      object_(object),
      record_(record),
      announced_(announced),
      outer_(t_innermost) {
    t_innermost = this;
}

HandleTable::Use::Use(Use&& other) noexcept
    : table_(other.table_),
      index_(other.index_),
      object_(other.object_),
      record_(other.record_),
      announced_(other.announced_),
      outer_(other.outer_) {
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
    table_->EndUse(index_, record_, announced_);
}

// ---- Table ----

uint32_t HandleTable::UsesOf(const Slot& slot, uint64_t handle) const noexcept {
    const uint32_t counted =
        static_cast<uint32_t>(slot.state.load(std::memory_order_acquire) & kUsesMask);
    return counted + static_cast<uint32_t>(announcements_.Sum(
                         [handle](uint64_t announced) { return announced == handle ? 1u : 0u; }));
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
    Registry::Record* record = announcements_.Own(t_ticket);
    if (record != nullptr && record->depth < kNested) {
        // Announce, then look: Remove sets the dying bit, then flushes, then reads the
        // announcements, so either it sees this one or this load sees the bit.
        const uint32_t position = record->depth;
        Registry::Announce(record->words[position], handle);
        const uint64_t state = slot.state.load(std::memory_order_acquire);
        if ((state & kIdentityMask) != named || (state & kDying) != 0) {
            Registry::Withdraw(record->words[position], 0);
            if ((state & kIdentityMask) == named) {
                // A Remove of this handle may have counted the announcement and be waiting:
                // taking it back is the end of a use, so the remover is woken as for one.
                std::lock_guard<std::mutex> lock(mutex_);
                usesEnded_.notify_all();
            }
            return Use();
        }
        record->depth = position + 1;
        return Use(this, index, slot.raw, record, position);
    }
    uint64_t state = slot.state.load(std::memory_order_acquire);
    do {
        // Another generation or kind, a free slot, or a dying one: no new Use.
        if ((state & kIdentityMask) != named || (state & kDying) != 0 ||
            (state & kUsesMask) == kUsesMask) {
            return Use();
        }
    } while (!slot.state.compare_exchange_weak(state, state + 1, std::memory_order_acquire,
                                               std::memory_order_acquire));
    return Use(this, index, slot.raw, nullptr, kCounted);
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

void HandleTable::EndUse(uint32_t index, Registry::Record* record, uint32_t announced) noexcept {
    Slot& slot = slots_[index];
    uint64_t handle = 0;
    if (announced != kCounted) {
        handle = record->words[announced].load(std::memory_order_relaxed);
        // What this Use did happens before a Remove that reads the withdrawn word.
        Registry::Withdraw(record->words[announced], 0);
        record->depth = announced;
        std::atomic_signal_fence(std::memory_order_seq_cst);
        if ((slot.state.load(std::memory_order_acquire) & kDying) == 0) {
            return;  // the common case: no lock, no locked instruction
        }
    } else {
        const uint64_t before = slot.state.fetch_sub(1, std::memory_order_acq_rel);
        if ((before & kDying) == 0) {
            return;  // no lock
        }
        handle = MakeHandle(static_cast<HandleKind>((before >> 32) & 0xFFu),
                            static_cast<uint32_t>(before >> 40), index);
    }
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
    uint32_t own = 0;
    for (const Use* use = t_innermost; use != nullptr; use = use->outer_) {
        own += use->table_ == this && use->index_ == index ? 1u : 0u;
    }
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
