#include "engine/engine_gate.h"

#include <atomic>
#include <new>

#include <cstdlib>
#include <mutex>
#include <thread>

#include "platform/platform.h"

namespace OrbPerix {
namespace engine {
namespace {

constexpr uint32_t kShards = 32;
constexpr uint32_t kNoShard = 0xFFFFFFFFu;

// One counter of calls in flight per shard, each on a cache line of its own. A thread takes a
// shard once (round robin) and keeps it, so two threads share a line only when more threads
// than shards call the engine at once.
struct alignas(64) Shard {
    std::atomic<uint32_t> inFlight{0};
};
using detail::g_liveGeneration;
using detail::GateSlot;
using detail::kCallbackTurn;
using detail::kCalls;
using detail::ThreadState;

// Constant-initialised and trivially destructible: valid from load to unload of the library.
Shard g_shards[kShards];
std::atomic<uint32_t> g_nextShard{0};
std::atomic<uint64_t> g_lastGeneration{0};
std::atomic<const EngineLoad*> g_current{nullptr};

// Slots of their own for the first threads that call the engine: a thread announces a call
// with a plain store to its slot, and Close pays for the ordering with a heavy barrier (where
// the platform has none, calls use the shards). Slots are not recycled (threads leave no trace
// at exit); threads beyond them use the shards. Prepared by the first Publish.
detail::GateSlots g_slots;
constexpr uint32_t kOwnSlots = detail::GateSlots::kRecords;

// Polls `done` until it is true (true) or `timeoutMs` have passed (false). What it waits for
// is usually short: it yields a few times before it sleeps.
template <typename Done>
bool WaitUntil(uint32_t timeoutMs, Done done) noexcept {
    const int64_t frequency = platform::PerformanceFrequency();
    const int64_t start = platform::PerformanceCounter();
    for (uint32_t round = 0;; ++round) {
        if (done()) {
            return true;
        }
        const int64_t elapsedMs = (platform::PerformanceCounter() - start) * 1000 / frequency;
        if (elapsedMs >= static_cast<int64_t>(timeoutMs)) {
            return false;
        }
        if (round < 64) {
            std::this_thread::yield();
        } else {
            platform::SleepMilliseconds(1);
        }
    }
}

// Loads live as long as the process: a provider may hold one long after Finalize. Each one is
// linked here so that leak checkers see it as reachable.
struct LoadNode {
    EngineLoad load;
    LoadNode* next;
};
std::atomic<LoadNode*> g_loads{nullptr};

LoadNode* g_reserved = nullptr;  // the next load's record; host thread (Initialize) only
int g_exitHooks = 0;             // exit handlers registered so far; host thread only

const EngineLoad kNoEngine{};

// At process exit the engine stays loaded, but its own exit-time teardown may run before the
// process ends while a heartbeat or engine thread of ours still runs: no call may start then.
void CloseAtExit() { CloseForExit(); }

}  // namespace

namespace detail {
std::atomic<uint64_t> g_liveGeneration{0};
ORBPERIX_TRIVIAL_THREAD_LOCAL ThreadState t_gate{{0, nullptr}, nullptr, false, kNoShard, 0, 0};
}  // namespace detail

const EngineLoad& NoEngine() noexcept { return kNoEngine; }

const EngineLoad& Current() noexcept {
    const EngineLoad* current = g_current.load(std::memory_order_acquire);
    return current != nullptr ? *current : kNoEngine;
}

bool IsLive(const EngineLoad& load) noexcept {
    return load.generation != 0 &&
           g_liveGeneration.load(std::memory_order_acquire) == load.generation;
}

bool Reserve() noexcept {
    if (g_reserved == nullptr) {
        g_reserved = new (std::nothrow) LoadNode();
    }
    return g_reserved != nullptr;
}

const EngineLoad& Publish(const OrbPERIXHandler& main, const ButtonHandlerSource& button,
                          const AudioHandlerSource& audio,
                          const RefreshHandlerSource& refresh) noexcept {
    g_slots.Prepare();
    LoadNode* node = g_reserved;
    g_reserved = nullptr;
    node->load.main = main;
    node->load.button = button;
    node->load.audio = audio;
    node->load.refresh = refresh;
    node->load.generation = g_lastGeneration.fetch_add(1, std::memory_order_relaxed) + 1;
    node->next = g_loads.load(std::memory_order_relaxed);
    g_loads.store(node, std::memory_order_release);
    g_current.store(&node->load, std::memory_order_release);
    g_liveGeneration.store(node->load.generation, std::memory_order_seq_cst);
    // Registered after the engine module was loaded, so it runs before the module's own exit
    // handlers. The C library promises room for 32; later loads share the earlier handlers.
    if (g_exitHooks < 32 && std::atexit(&CloseAtExit) == 0) {
        ++g_exitHooks;
    }
    return node->load;
}

namespace {

// This thread's own slot, or null (before the first Publish, or none left).
GateSlot* OwnSlot(ThreadState& self) noexcept { return g_slots.Own(self.ticket); }

}  // namespace

namespace detail {

// The first call of a thread (which takes its slot), and every call of a thread without an
// own slot (no heavy barrier on this platform, or past the own slots): counted in a shard. A
// thread moves to its slot only between calls, so that every Leave undoes its own Enter.
bool EnterSlow(const EngineLoad& load) noexcept {
    ThreadState& self = detail::t_gate;
    if (self.depth == 0 && g_slots.Light()) {
        self.fast = OwnSlot(self);
        if (self.fast != nullptr) {
            return Enter(load);
        }
    }
    if (self.shard == kNoShard) {
        self.shard = g_nextShard.fetch_add(1, std::memory_order_relaxed) % kShards;
    }
    Shard& shard = g_shards[self.shard];
    // Counted in before the generation is read again (both sequentially consistent): either
    // Close sees this count, or this thread sees the closed gate.
    shard.inFlight.fetch_add(1, std::memory_order_seq_cst);
    if (g_liveGeneration.load(std::memory_order_seq_cst) != load.generation) {
        shard.inFlight.fetch_sub(1, std::memory_order_release);
        return false;
    }
    ++self.depth;
    return true;
}

void LeaveShard() noexcept {
    g_shards[detail::t_gate.shard].inFlight.fetch_sub(1, std::memory_order_release);
}

}  // namespace detail

bool CloseAndDrain(uint32_t timeoutMs) noexcept {
    g_liveGeneration.store(0, std::memory_order_seq_cst);
    g_current.store(nullptr, std::memory_order_release);
    if (detail::t_gate.depth != 0 || detail::t_gate.callbacks != 0) {
        return false;
    }
    g_slots.Flush();
    return WaitUntil(timeoutMs, [] {
        uint64_t inFlight = 0;
        for (const Shard& shard : g_shards) {
            inFlight += shard.inFlight.load(std::memory_order_seq_cst);
        }
        const uint32_t claimed = g_slots.Claimed();
        for (uint32_t i = 0; i < claimed; ++i) {
            inFlight += g_slots.At(i).words[kCalls].load(std::memory_order_acquire);
        }
        return inFlight == 0;
    });
}

// Callbacks under way. A thread with an own slot announces its callback there with plain
// stores (no locked instruction, no line shared with other threads); WaitForCallbacks makes
// the announcements visible (heavy barrier; where there is none, sequentially consistent
// stores and loads of the slots), notes which slots are in a callback and waits for each of
// those to move on, so that callbacks starting meanwhile never hold it up.
//
// Threads beyond the own slots count themselves in two epochs: a callback counts itself in the
// current epoch when it starts; WaitForCallbacks moves the epoch on and waits for the old
// one's count to reach zero. Waiters take turns on that part.
std::atomic<uint32_t> g_callbackEpoch{0};
Shard g_callbacksInEpoch[2];
thread_local uint32_t t_callbackEpoch = 0;

CallbackScope::CallbackScope() noexcept {
    ThreadState& self = detail::t_gate;
    if (self.callbacks++ != 0) {
        return;  // nested callbacks of one thread count once
    }
    GateSlot* own = OwnSlot(self);
    self.callbackInSlot = own != nullptr;
    if (own != nullptr) {
        std::atomic<uint64_t>& turn = own->words[kCallbackTurn];
        const uint64_t next = turn.load(std::memory_order_relaxed) + 1;
        // The announcement must be seen by a waiter before this callback looks its listener
        // up: the waiter's heavy barrier orders it where there is one, else a sequentially
        // consistent store (still to a line no other thread writes) does.
        if (g_slots.Light()) {
            detail::GateSlots::Announce(turn, next);
        } else {
            turn.store(next, std::memory_order_seq_cst);
        }
        return;
    }
    for (;;) {
        const uint32_t epoch = g_callbackEpoch.load(std::memory_order_seq_cst);
        g_callbacksInEpoch[epoch & 1].inFlight.fetch_add(1, std::memory_order_seq_cst);
        // A waiter that moved the epoch in between would not look at this count again.
        if (g_callbackEpoch.load(std::memory_order_seq_cst) == epoch) {
            t_callbackEpoch = epoch;
            return;
        }
        g_callbacksInEpoch[epoch & 1].inFlight.fetch_sub(1, std::memory_order_seq_cst);
    }
}

CallbackScope::~CallbackScope() {
    ThreadState& self = detail::t_gate;
    if (--self.callbacks != 0) {
        return;
    }
    if (self.callbackInSlot) {
        // What the listener did happens before a waiter that sees the turn move on.
        std::atomic<uint64_t>& turn = self.ticket.record->words[kCallbackTurn];
        detail::GateSlots::Withdraw(turn, turn.load(std::memory_order_relaxed) + 1);
    } else {
        g_callbacksInEpoch[t_callbackEpoch & 1].inFlight.fetch_sub(1, std::memory_order_release);
    }
}

bool WaitForCallbacks(uint32_t timeoutMs) noexcept {
    static std::mutex waiters;
    std::lock_guard<std::mutex> turn(waiters);
    // Every callback either announced itself visibly before the slots are read below, or looks
    // its listener up after this point (and finds what the caller forgot before calling).
    g_slots.Flush();
    const uint32_t epoch = g_callbackEpoch.fetch_add(1, std::memory_order_seq_cst);
    const uint32_t claimed = g_slots.Claimed();
    // The turn of each own slot that is in a callback now (0: not waited for). The calling
    // thread's own callback is not waited for.
    uint64_t busy[kOwnSlots];
    for (uint32_t i = 0; i < claimed; ++i) {
        const GateSlot& slot = g_slots.At(i);
        const uint64_t slotTurn = slot.words[kCallbackTurn].load(std::memory_order_seq_cst);
        busy[i] = (slotTurn & 1) != 0 && &slot != detail::t_gate.ticket.record ? slotTurn : 0;
    }
    // The calling thread's own callback, when it runs one that counted in the old epoch.
    const uint32_t own = (detail::t_gate.callbacks != 0 && !detail::t_gate.callbackInSlot &&
                          (t_callbackEpoch & 1) == (epoch & 1))
                             ? 1
                             : 0;
    return WaitUntil(timeoutMs, [&busy, claimed, epoch, own] {
        for (uint32_t i = 0; i < claimed; ++i) {
            if (busy[i] != 0 &&
                g_slots.At(i).words[kCallbackTurn].load(std::memory_order_acquire) == busy[i]) {
                return false;
            }
        }
        return g_callbacksInEpoch[epoch & 1].inFlight.load(std::memory_order_acquire) <= own;
    });
}

void CloseForExit() noexcept {
    g_liveGeneration.store(0, std::memory_order_seq_cst);
    g_current.store(nullptr, std::memory_order_release);
}

}  // namespace engine
}  // namespace OrbPerix
