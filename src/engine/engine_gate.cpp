#include "engine/engine_gate.h"

#include <atomic>
#include <new>

#include <cstdlib>
#include <mutex>
#include <thread>

#include "platform/platform.h"
#include "util/announcements.h"

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

// Constant-initialised and trivially destructible: valid from load to unload of the library.
Shard g_shards[kShards];
std::atomic<uint32_t> g_nextShard{0};
// The generation of the live load; 0 while the gate is closed.
std::atomic<uint64_t> g_liveGeneration{0};
std::atomic<uint64_t> g_lastGeneration{0};
std::atomic<const EngineLoad*> g_current{nullptr};

// Records of their own for the first threads that call the engine: a thread announces a call
// by counting it in its record's one word with a plain store, and Close pays for the ordering
// (Flush). Prepared once, before the first load goes live; threads beyond the records, and
// every thread without the heavy barrier, use the shards.
using CallRegistry = Announcements<1>;
CallRegistry g_calls;

// Trivially destructible, so no thread-exit work is registered for it.
struct ThreadState {
    CallRegistry::Ticket ticket;  // this thread's record in g_calls
    uint32_t shard;
    uint32_t depth;      // calls of this thread inside the engine (nested through callbacks)
    uint32_t callbacks;  // engine callbacks this thread is running
    CallRegistry::Record* own;  // the record the calls under way were counted in, or null
};
thread_local ThreadState t_state{{0, nullptr}, kNoShard, 0, 0, nullptr};

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
    g_calls.Prepare();
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

bool Enter(const EngineLoad& load) noexcept {
    // Cheap refusal first: a closed gate or a dead load costs one read.
    if (load.generation == 0 ||
        g_liveGeneration.load(std::memory_order_relaxed) != load.generation) {
        return false;
    }
    ThreadState& self = t_state;
    // Nested calls count where the outermost one did, so that each Leave undoes its own Enter.
    CallRegistry::Record* own = self.depth != 0 ? self.own : g_calls.Own(self.ticket);
    if (own != nullptr) {
        // Only this thread writes its record: either Close sees this count, or this thread
        // sees the closed gate below.
        const uint64_t count = own->words[0].load(std::memory_order_relaxed);
        CallRegistry::Announce(own->words[0], count + 1);
        if (g_liveGeneration.load(std::memory_order_relaxed) != load.generation) {
            CallRegistry::Withdraw(own->words[0], count);
            return false;
        }
    } else {
        if (self.shard == kNoShard) {
            self.shard = g_nextShard.fetch_add(1, std::memory_order_relaxed) % kShards;
        }
        Shard& shard = g_shards[self.shard];
        // Counted in before the generation is read again (both sequentially consistent):
        // either Close sees this count, or this thread sees the closed gate.
        shard.inFlight.fetch_add(1, std::memory_order_seq_cst);
        if (g_liveGeneration.load(std::memory_order_seq_cst) != load.generation) {
            shard.inFlight.fetch_sub(1, std::memory_order_release);
            return false;
        }
    }
    self.own = own;
    ++self.depth;
    return true;
}

void Leave() noexcept {
    ThreadState& self = t_state;
    --self.depth;
    if (self.own != nullptr) {
        CallRegistry::Withdraw(self.own->words[0],
                               self.own->words[0].load(std::memory_order_relaxed) - 1);
    } else {
        g_shards[self.shard].inFlight.fetch_sub(1, std::memory_order_release);
    }
}

bool CloseAndDrain(uint32_t timeoutMs) noexcept {
    g_liveGeneration.store(0, std::memory_order_seq_cst);
    g_current.store(nullptr, std::memory_order_release);
    if (t_state.depth != 0 || t_state.callbacks != 0) {
        return false;
    }
    g_calls.Flush();
    return WaitUntil(timeoutMs, [] {
        uint64_t inFlight = g_calls.Sum([](uint64_t count) { return count; });
        for (const Shard& shard : g_shards) {
            inFlight += shard.inFlight.load(std::memory_order_seq_cst);
        }
        return inFlight == 0;
    });
}

// Callbacks under way, counted in two epochs: a callback counts itself in the current epoch
// when it starts; WaitForCallbacks moves the epoch on and waits for the old one's count to
// reach zero, so that callbacks starting meanwhile never hold it up. Waiters take turns.
std::atomic<uint32_t> g_callbackEpoch{0};
Shard g_callbacksInEpoch[2];
thread_local uint32_t t_callbackEpoch = 0;

CallbackScope::CallbackScope() noexcept {
    if (t_state.callbacks++ != 0) {
        return;  // nested callbacks of one thread count once
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
    if (--t_state.callbacks == 0) {
        g_callbacksInEpoch[t_callbackEpoch & 1].inFlight.fetch_sub(1, std::memory_order_release);
    }
}

bool WaitForCallbacks(uint32_t timeoutMs) noexcept {
    static std::mutex waiters;
    std::lock_guard<std::mutex> turn(waiters);
    const uint32_t epoch = g_callbackEpoch.fetch_add(1, std::memory_order_seq_cst);
    // The calling thread's own callback, when it runs one that counted in the old epoch.
    const uint32_t own =
        (t_state.callbacks != 0 && (t_callbackEpoch & 1) == (epoch & 1)) ? 1 : 0;
    return WaitUntil(timeoutMs, [epoch, own] {
        return g_callbacksInEpoch[epoch & 1].inFlight.load(std::memory_order_acquire) <= own;
    });
}

void CloseForExit() noexcept {
    g_liveGeneration.store(0, std::memory_order_seq_cst);
    g_current.store(nullptr, std::memory_order_release);
}

}  // namespace engine
}  // namespace OrbPerix
