#include "capture/record_ring.h"

#include <cstring>
#include <new>

namespace OrbPerix {
namespace capture {

bool RecordRing::Allocate(uint32_t capacity) noexcept {
    Free();
    uint64_t size = 2;
    while (size < capacity && size < (1u << 20)) {
        size <<= 1;
    }
    cells_ = new (std::nothrow) Cell[size];
    if (cells_ == nullptr) {
        return false;
    }
    for (uint64_t i = 0; i < size; ++i) {
        cells_[i].sequence.store(i, std::memory_order_relaxed);
    }
    mask_ = size - 1;
    tail_.store(0, std::memory_order_relaxed);
    head_ = 0;
    dropped_.store(0, std::memory_order_relaxed);
    return true;
}

void RecordRing::Free() noexcept {
    delete[] cells_;
    cells_ = nullptr;
    mask_ = 0;
}

RecordRing::Cell* RecordRing::TryClaim() noexcept {
    if (cells_ == nullptr) {
        dropped_.fetch_add(1, std::memory_order_relaxed);
        return nullptr;
    }
    uint64_t position = tail_.load(std::memory_order_relaxed);
    for (;;) {
        Cell& cell = cells_[position & mask_];
        const uint64_t sequence = cell.sequence.load(std::memory_order_acquire);
        if (sequence == position) {
            // The cell is free for this lap: claim it, or retry at the position that won.
            if (tail_.compare_exchange_weak(position, position + 1, std::memory_order_relaxed)) {
                return &cell;
            }
        } else if (sequence < position) {
            // The consumer has not freed this cell since the previous lap: full.
            dropped_.fetch_add(1, std::memory_order_relaxed);
            return nullptr;
        } else {
            position = tail_.load(std::memory_order_relaxed);
        }
    }
}

void RecordRing::Publish(Cell* cell) noexcept {
    // A claimed cell's sequence still holds the position it was claimed at.
    cell->sequence.store(cell->sequence.load(std::memory_order_relaxed) + 1,
                         std::memory_order_release);
}

bool RecordRing::TryPush(uint64_t time, const uint8_t* record, uint32_t length) noexcept {
    if (length > kMaxRecordSize) {
        dropped_.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
    Cell* cell = TryClaim();
    if (cell == nullptr) {
        return false;
    }
    cell->time = time;
    cell->length = length;
    std::memcpy(cell->bytes, record, length);
    Publish(cell);
    return true;
}

const RecordRing::Cell* RecordRing::Front() noexcept {
    if (cells_ == nullptr) {
        return nullptr;
    }
    Cell& cell = cells_[head_ & mask_];
    return cell.sequence.load(std::memory_order_acquire) == head_ + 1 ? &cell : nullptr;
}

void RecordRing::PopFront() noexcept {
    Cell& cell = cells_[head_ & mask_];
    cell.sequence.store(head_ + mask_ + 1, std::memory_order_release);
    ++head_;
}

}  // namespace capture
}  // namespace OrbPerix
