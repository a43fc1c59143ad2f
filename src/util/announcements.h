// Announcements: per-thread records through which a hot path says "I am in here" with plain
// stores, while the rare path that must find out who is pays for the ordering itself with the
// platform's heavy barrier. The engine gate (calls in flight) and the C interface's handle table
// (Uses of a handle) both work this way.
//
// The protocol, around one condition that the rare path makes true (the gate closed, a handle
// dying):
//   hot path:  Announce(word, v); if the condition holds: Withdraw(word, old), refuse;
//              otherwise work, then Withdraw(word, old).
//   rare path: make the condition true; Flush(); then read the announcements (Sum).
// After Flush every other thread has run a full barrier: either its announcement is visible to
// the rare path, or its check after announcing sees the condition. Withdraw is a release
// store, so what the hot path did happens before a rare path that reads the withdrawn word.
//
// The first kRecords threads to ask (once the registry is prepared) get a record of kWords
// words, kept for the life of the process (no thread-exit work). Later threads get none: the
// caller then counts them its own way, with locked instructions on both sides. Where the
// platform has no heavy barrier (Light() false) a plain store is not enough: a caller either
// does without the records or orders both sides itself (sequentially consistent stores and
// loads). A thread finds its record through a Ticket that the caller keeps in a thread_local of
// its own, so that the lookup is one comparison.
//
// Constant-initialised and trivially destructible: a registry at namespace scope is valid from
// the library's load to its unload without an initialisation guard.
#ifndef ORBPERIX_SRC_UTIL_ANNOUNCEMENTS_H_
#define ORBPERIX_SRC_UTIL_ANNOUNCEMENTS_H_

#include <atomic>
#include <cstdint>

#include "platform/platform.h"

namespace OrbPerix {

template <uint32_t kWords>
class Announcements {
public:
    static constexpr uint32_t kRecords = 256;

    struct Record;
    // A thread's claim on a record of one registry; zero-initialised before the first claim.
    // Lives in a thread_local, so its address also names the thread.
    struct Ticket {
        uint64_t serial;  // the registry's serial when it was claimed; 0: not yet
        Record* record;   // null: no record was left for this thread
    };

    // Written only by the thread that holds it.
    struct alignas(64) Record {
        std::atomic<uint64_t> words[kWords] = {};
        uint32_t depth = 0;  // for callers that use the words as a stack
        // The ticket that claimed it: a thread that turned to another registry and came back
        // holds more than one record here, all under its ticket's address.
        std::atomic<const Ticket*> owner{nullptr};
    };

    constexpr Announcements() noexcept = default;
    Announcements(const Announcements&) = delete;
    Announcements& operator=(const Announcements&) = delete;

    // Rare path, before the first announcement can matter: decides once whether the heavy
    // barrier exists (later calls keep the first answer) and gives the registry its serial, so
    // that a ticket of an earlier registry at the same address (tests make and drop tables) is
    // never taken for one of this. REQUIRES: callers serialised.
    void Prepare() noexcept {
        if (!prepared_.load(std::memory_order_relaxed)) {
            static std::atomic<uint64_t> serials{0};
            serial_.store(serials.fetch_add(1, std::memory_order_relaxed) + 1,
                          std::memory_order_relaxed);
            light_.store(platform::PrepareHeavyBarrier(), std::memory_order_relaxed);
            prepared_.store(true, std::memory_order_release);
        }
    }
    bool Light() const noexcept { return light_.load(std::memory_order_relaxed); }

    // The calling thread's record; null before Prepare or when all are taken.
    Record* Own(Ticket& ticket) noexcept {
        if (ticket.serial == serial_.load(std::memory_order_relaxed)) {
            return ticket.record;
        }
        return Claim(ticket);
    }

    static void Announce(std::atomic<uint64_t>& word, uint64_t value) noexcept {
        word.store(value, std::memory_order_relaxed);
        // The check that follows must not be moved above the store by the compiler; the
        // processor's reordering is what Flush answers for.
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }
    static void Withdraw(std::atomic<uint64_t>& word, uint64_t value) noexcept {
        word.store(value, std::memory_order_release);
    }

    // Rare path, after making its condition true.
    void Flush() const noexcept {
        if (Light()) {
            platform::HeavyBarrier();
        }
    }

    // The records claimed so far are At(0) to At(Claimed() - 1).
    uint32_t Claimed() const noexcept {
        const uint32_t claimed = claimed_.load(std::memory_order_acquire);
        return claimed < kRecords ? claimed : kRecords;
    }
    const Record& At(uint32_t index) const noexcept { return records_[index]; }

    // The sum of `count(word)` over every word of every claimed record (acquire loads), or
    // only of the records claimed through `owner` (a thread's own ticket) when it is given.
    template <typename Count>
    uint64_t Sum(Count count, const Ticket* owner = nullptr) const noexcept {
        uint64_t total = 0;
        const uint32_t claimed = Claimed();
        for (uint32_t r = 0; r < claimed; ++r) {
            if (owner != nullptr && records_[r].owner.load(std::memory_order_relaxed) != owner) {
                continue;
            }
            for (const std::atomic<uint64_t>& word : records_[r].words) {
                total += count(word.load(std::memory_order_acquire));
            }
        }
        return total;
    }

private:
    // Null, and nothing claimed, before Prepare (asked again next time).
    Record* Claim(Ticket& ticket) noexcept {
        if (!prepared_.load(std::memory_order_acquire)) {
            return nullptr;
        }
        // Records are never given back: a thread keeps its record for the life of the process.
        const uint32_t taken = claimed_.fetch_add(1, std::memory_order_relaxed);
        Record* record = taken < kRecords ? &records_[taken] : nullptr;
        if (record != nullptr) {
            record->owner.store(&ticket, std::memory_order_relaxed);
        }
        ticket.record = record;
        ticket.serial = serial_.load(std::memory_order_relaxed);
        return record;
    }

    std::atomic<uint64_t> serial_{0};  // 0 until Prepare
    std::atomic<bool> light_{false};
    std::atomic<bool> prepared_{false};  // Prepare ran: records may be claimed
    std::atomic<uint32_t> claimed_{0};
    Record records_[kRecords];
};

}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_UTIL_ANNOUNCEMENTS_H_
