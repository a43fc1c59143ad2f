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
// This thread's announcement record in `table`: index + 1, 0 before it asked, kNoRecord when
// none is left. (One table serves the process; tests make tables of their own.)
constexpr uint32_t kNoRecord = ~0u;
struct RecordOf {
    const HandleTable* table;
    uint32_t record;
};
thread_local RecordOf t_record{nullptr, 0};

}  // namespace

HandleTable& HandleTable::Instance() noexcept {
    // Engine and host threads may still use handles while static objects are destroyed at exit.
    static NoDestructor<HandleTable> table;
    return *table;
}

// ---- Use ----

HandleTable::Use::Use(HandleTable* table, uint32_t index, void* object,
                      uint32_t announced) noexcept
    : table_(table), index_(index), object_(object), announced_(announced), outer_(t_innermost) {
    t_innermost = this;
}

HandleTable::Use::Use(Use&& other) noexcept
    : table_(other.table_),
      index_(other.index_),
      object_(other.object_),
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
    table_->EndUse(index_, announced_);
}

// ---- Table ----

HandleTable::ThreadRecord* HandleTable::OwnRecord() noexcept {
    if (!light_.load(std::memory_order_relaxed)) {
        return nullptr;
    }
    if (t_record.table != this) {
        // Records are never given back: a thread keeps its record for the life of the process
        // (no thread-exit work), and later threads count their Uses in the slots instead.
        const uint32_t taken = recordsTaken_.fetch_add(1, std::memory_order_relaxed);
        t_record = RecordOf{this, taken < kThreadRecords ? taken + 1 : kNoRecord};
    }
    return t_record.record != kNoRecord ? &records_[t_record.record - 1] : nullptr;
}

uint32_t HandleTable::UsesOf(const Slot& slot, uint64_t handle) const noexcept {
    uint32_t uses = static_cast<uint32_t>(slot.state.load(std::memory_order_acquire) & kUsesMask);
    const uint32_t records = recordsTaken_.load(std::memory_order_acquire);
    for (uint32_t r = 0; r < records && r < kThreadRecords; ++r) {
        for (const std::atomic<uint64_t>& announced : records_[r].handles) {
            // Acquire: pairs with the release that ends a Use, so its accesses happen before.
            uses += announced.load(std::memory_order_acquire) == handle ? 1u : 0u;
        }
    }
    return uses;
}

uint64_t HandleTable::Add(HandleKind kind, std::shared_ptr<void> object) noexcept {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!lightDecided_) {
        lightDecided_ = true;
        light_.store(platform::PrepareHeavyBarrier(), std::memory_order_relaxed);
    }
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
    ThreadRecord* record = OwnRecord();
    if (record != nullptr && record->depth < kNested) {
        // Announce, then look: Remove sets the dying bit, then runs the barrier, then reads
        // the announcements, so either it sees this one or this load sees the bit.
        const uint32_t position = record->depth;
        record->handles[position].store(handle, std::memory_order_relaxed);
        std::atomic_signal_fence(std::memory_order_seq_cst);
        const uint64_t state = slot.state.load(std::memory_order_acquire);
        if ((state & kIdentityMask) != named || (state & kDying) != 0) {
            record->handles[position].store(0, std::memory_order_release);
            if ((state & kIdentityMask) == named) {
                // A Remove of this handle may have counted the announcement and be waiting:
                // taking it back is the end of a use, so the remover is woken as for one.
                std::lock_guard<std::mutex> lock(mutex_);
                usesEnded_.notify_all();
            }
            return Use();
        }
        record->depth = position + 1;
        return Use(this, index, slot.raw, position);
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
    return Use(this, index, slot.raw, kCounted);
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

void HandleTable::EndUse(uint32_t index, uint32_t announced) noexcept {
    Slot& slot = slots_[index];
    uint64_t handle = 0;
    if (announced != kCounted) {
        // A thread with an announced Use has its record in this table.
        ThreadRecord& record = records_[t_record.record - 1];
        handle = record.handles[announced].load(std::memory_order_relaxed);
        // Release: what this Use did happens before a Remove that reads the cleared entry.
        record.handles[announced].store(0, std::memory_order_release);
        record.depth = announced;
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
    if (light_.load(std::memory_order_relaxed)) {
        // Every thread now sees the dying bit, or its announcement is visible here.
        platform::HeavyBarrier();
    }
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
