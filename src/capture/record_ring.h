// A bounded queue of capture records: many producers (host, engine and heartbeat threads),
// one consumer (the capture's writer thread). Lock-free: a producer claims a cell with one
// compare-and-swap and never waits; when every cell is taken the record is dropped and
// counted. Each cell carries a sequence number that says whose turn it is (producer or
// consumer), so a cell is read only after its producer published it.
//
// Threads: TryPush from any thread; Front/PopFront from the one consumer; Allocate/Free
// while no producer and no consumer use the ring (the capture session guarantees that).
#ifndef ORBPERIX_SRC_CAPTURE_RECORD_RING_H_
#define ORBPERIX_SRC_CAPTURE_RECORD_RING_H_

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "capture/record_format.h"

namespace OrbPerix {
namespace capture {

class RecordRing {
public:
    struct Cell {
        std::atomic<uint64_t> sequence;
        uint64_t time;
        uint32_t length;
        uint8_t bytes[kMaxRecordSize];
    };

    RecordRing() = default;
    ~RecordRing() { Free(); }
    RecordRing(const RecordRing&) = delete;
    RecordRing& operator=(const RecordRing&) = delete;

    // Makes room for `capacity` records (rounded up to a power of two); false without memory.
    bool Allocate(uint32_t capacity) noexcept;
    void Free() noexcept;
    uint32_t Capacity() const noexcept { return static_cast<uint32_t>(mask_ + 1); }

    // Claims the next free cell for the calling producer, or null (counted as dropped) when
    // the ring is full. Never blocks. The producer fills time, length and bytes, then hands the
    // cell to the consumer with Publish.
    Cell* TryClaim() noexcept;
    void Publish(Cell* cell) noexcept;
    // Queues a copy of `record` (at most kMaxRecordSize bytes): TryClaim, copy, Publish.
    bool TryPush(uint64_t time, const uint8_t* record, uint32_t length) noexcept;
    // The oldest published record, or null; PopFront hands its cell back to the producers.
    const Cell* Front() noexcept;
    void PopFront() noexcept;

    uint64_t Dropped() const noexcept { return dropped_.load(std::memory_order_relaxed); }
    uint64_t TakeDropped() noexcept { return dropped_.exchange(0, std::memory_order_relaxed); }

private:
    Cell* cells_ = nullptr;
    uint64_t mask_ = 0;
    alignas(64) std::atomic<uint64_t> tail_{0};  // next cell a producer claims
    alignas(64) uint64_t head_ = 0;              // next cell the consumer reads
    std::atomic<uint64_t> dropped_{0};
};

}  // namespace capture
}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_CAPTURE_RECORD_RING_H_
