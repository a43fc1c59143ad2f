#include "capi/handle_table.h"

#include <new>
#include <utility>

namespace OrbPerix {
namespace capi {

namespace {

constexpr uint32_t kGenerationMask = 0xFFFFFFu;

uint64_t MakeHandle(HandleKind kind, uint32_t generation, uint32_t index) noexcept {
    return (static_cast<uint64_t>(kind) << 56) |
           (static_cast<uint64_t>(generation & kGenerationMask) << 32) |
           (static_cast<uint64_t>(index) + 1u);
}

}  // namespace

HandleTable& HandleTable::Instance() noexcept {
    // Deliberately leaked: engine and host threads may still use handles while static objects
    // are destroyed at exit.
    static HandleTable* table = new HandleTable();
    return *table;
}

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
            // Reserve the free-list entry now so that Remove never has to allocate.
            freeList_.reserve(slots_.size() + 1);
            slots_.emplace_back();
            index = static_cast<uint32_t>(slots_.size() - 1);
        }
        Slot& slot = slots_[index];
        slot.kind = kind;
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
    if (slot.kind != kind || (slot.generation & kGenerationMask) != generation) {
        return nullptr;
    }
    return &slot;
}

std::shared_ptr<void> HandleTable::Find(uint64_t handle, HandleKind kind) noexcept {
    std::lock_guard<std::mutex> lock(mutex_);
    Slot* slot = Locate(handle, kind);
    return slot != nullptr ? slot->object : std::shared_ptr<void>();
}

std::shared_ptr<void> HandleTable::Remove(uint64_t handle, HandleKind kind) noexcept {
    std::shared_ptr<void> object;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        Slot* slot = Locate(handle, kind);
        if (slot == nullptr) {
            return object;
        }
        object = std::move(slot->object);
        slot->kind = HandleKind::kFree;
        slot->generation = (slot->generation + 1) & kGenerationMask;
        if (slot->generation == 0) {
            slot->generation = 1;
        }
        // Capacity was reserved by Add, so this cannot throw.
        freeList_.push_back(static_cast<uint32_t>(slot - slots_.data()));
    }
    // The object may die here, with the table unlocked (its destructor may call the engine).
    return object;
}

}  // namespace capi
}  // namespace OrbPerix
