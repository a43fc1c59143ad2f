#include "capi/handle_table.h"

#include <new>
#include <utility>

#include "util/no_destructor.h"

namespace OrbPerix {
namespace capi {

namespace {

constexpr uint32_t kGenerationMask = 0xFFFFFFu;

uint64_t MakeHandle(HandleKind kind, uint32_t generation, uint32_t index) noexcept {
    return (static_cast<uint64_t>(kind) << 56) |
           (static_cast<uint64_t>(generation & kGenerationMask) << 32) |
           (static_cast<uint64_t>(index) + 1u);
}

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
    try {
        uint32_t index;
        if (!freeList_.empty()) {
            index = freeList_.back();
            freeList_.pop_back();
        } else {
            if (slots_.size() >= 0xFFFFFFFEu) {
                return 0;
            }
            // Reserve the free-list entry now so that freeing a slot never has to allocate.
            freeList_.reserve(slots_.size() + 1);
            slots_.emplace_back();
            index = static_cast<uint32_t>(slots_.size() - 1);
        }
        Slot& slot = slots_[index];
        slot.kind = kind;
        slot.dying = false;
        slot.object = std::move(object);
        return MakeHandle(kind, slot.generation, index);
    } catch (...) {
        return 0;
    }
}

HandleTable::Slot* HandleTable::Locate(uint64_t handle, HandleKind kind) noexcept {
    const uint64_t low = handle & 0xFFFFFFFFu;
    if (low == 0 || low > slots_.size() || static_cast<HandleKind>(handle >> 56) != kind) {
        return nullptr;
    }
    Slot& slot = slots_[low - 1];
    const uint32_t generation = static_cast<uint32_t>(handle >> 32) & kGenerationMask;
    if (slot.kind != kind || slot.dying || (slot.generation & kGenerationMask) != generation) {
        return nullptr;
    }
    return &slot;
}

HandleTable::Use HandleTable::Acquire(uint64_t handle, HandleKind kind) noexcept {
    std::lock_guard<std::mutex> lock(mutex_);
    Slot* slot = Locate(handle, kind);
    if (slot == nullptr) {
        return Use();
    }
    ++slot->uses;
    return Use(this, static_cast<uint32_t>(slot - slots_.data()), slot->object.get());
}

std::shared_ptr<void> HandleTable::Free(Slot& slot) noexcept {
    std::shared_ptr<void> object = std::move(slot.object);
    slot.kind = HandleKind::kFree;
    slot.dying = false;
    slot.freeOnLastUse = false;
    slot.generation = (slot.generation + 1) & kGenerationMask;
    if (slot.generation == 0) {
        slot.generation = 1;
    }
    // Capacity was reserved by Add, so this cannot throw.
    freeList_.push_back(static_cast<uint32_t>(&slot - slots_.data()));
    return object;
}

void HandleTable::EndUse(uint32_t index) noexcept {
    std::shared_ptr<void> last;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        Slot& slot = slots_[index];
        --slot.uses;
        if (slot.freeOnLastUse && slot.uses == 0) {
            // Removed from inside this very call: the object dies here, after the call.
            last = Free(slot);
        }
    }
    usesEnded_.notify_all();
    last.reset();  // outside the lock: the destructor may call the engine
}

std::shared_ptr<void> HandleTable::Remove(uint64_t handle, HandleKind kind) noexcept {
    uint32_t own = 0;
    std::unique_lock<std::mutex> lock(mutex_);
    Slot* slot = Locate(handle, kind);
    if (slot == nullptr) {
        return std::shared_ptr<void>();
    }
    const uint32_t index = static_cast<uint32_t>(slot - slots_.data());
    for (const Use* use = t_innermost; use != nullptr; use = use->outer_) {
        own += use->table_ == this && use->index_ == index ? 1 : 0;
    }
    slot->dying = true;  // no new Use from here on
    // Slots may move while we wait (Add grows the vector): look the slot up by index.
    usesEnded_.wait(lock, [&] { return slots_[index].uses == own; });
    Slot& current = slots_[index];
    if (own == 0) {
        return Free(current);
    }
    // The calling thread still uses it further up its stack: the last Use frees the slot.
    current.freeOnLastUse = true;
    return current.object;
}

}  // namespace capi
}  // namespace OrbPerix
