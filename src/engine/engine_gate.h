// The one gate through which every call into the PERIX engine passes.
//
// Each successful Initialize publishes an EngineLoad: the four tables as the engine filled
// them, stamped with a generation number. Providers, sessions and the input kind's button
// channel keep a pointer to the load they were created under (loads are never freed, so the
// pointer stays valid for the life of the process). A call through a load's tables is let
// through only while that load is the live one; Finalize closes the gate, waits for the calls
// already inside the engine, and only then releases and unloads the engine. A call through the
// tables of a finalised load, or through the empty "no engine" load that providers created
// before Initialize hold, returns -13 (a null handle for PERIXCreateServiceHandle) and never
// jumps into the engine.
//
// Cost on the hot path: two reads of the live generation and a plain store before and after
// the call to a counter of the calling thread's own (its cache line written by no other
// thread); Close pays for the ordering with an asymmetric barrier. Where the platform has no
// such barrier (or past the first 256 threads) the counter is one of a few shards, changed
// with locked instructions.
//
// Threads: Enter/Leave (through EngineCall or EnginePass) from any thread; Publish, Close and
// Current from the host thread that runs Initialize/Finalize/provider creation.
#ifndef ORBPERIX_SRC_ENGINE_ENGINE_GATE_H_
#define ORBPERIX_SRC_ENGINE_ENGINE_GATE_H_

#include <atomic>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "capture/traced_call.h"
#include "orbperix/engine_tables.h"
#include "platform/platform.h"
#include "util/announcements.h"

namespace OrbPerix {

// The result the engine "gives" when it is not there.
constexpr int kEngineNotAvailable = -13;

// The tables of one engine load. Immutable once published; never freed.
struct EngineLoad {
    OrbPERIXHandler main;
    ButtonHandlerSource button;
    AudioHandlerSource audio;
    RefreshHandlerSource refresh;
    uint64_t generation;  // 0: no engine
};

namespace engine {

// The load of "no engine": every call through it returns -13.
const EngineLoad& NoEngine() noexcept;
// The load that providers created now are bound to: the live one, or NoEngine.
const EngineLoad& Current() noexcept;
// Whether calls through `load` are let through now.
bool IsLive(const EngineLoad& load) noexcept;

// Allocates the record of the next load ahead of time (Initialize, before it touches the
// engine), so that publishing cannot fail once the engine is initialised. False without memory.
bool Reserve() noexcept;
// Publishes a new live load with copies of the four tables (Initialize, on success).
// REQUIRES: a successful Reserve since the last Publish.
const EngineLoad& Publish(const OrbPERIXHandler& main, const ButtonHandlerSource& button,
                          const AudioHandlerSource& audio,
                          const RefreshHandlerSource& refresh) noexcept;

// Closes the gate for the live load and waits until no call is inside the engine any more.
// False, without waiting, when the calling thread is itself inside the engine or inside one of
// its callbacks (the engine's frames are below it on the stack), and false when calls are still
// in flight after `timeoutMs`: in both cases the engine must stay mapped.
bool CloseAndDrain(uint32_t timeoutMs) noexcept;
// Closes the gate without waiting (process exit: other threads may be gone or frozen).
void CloseForExit() noexcept;

namespace detail {
// What the inline Enter and Leave below read; defined in engine_gate.cpp.
// A thread's own slot is its record in the gate's announcement registry: word kCalls counts its
// calls inside the engine; word kCallbackTurn, written by the owning thread alone, is odd while
// that thread runs an engine callback (CallbackScope adds one as its outermost callback starts
// and ends).
using GateSlots = Announcements<2>;
using GateSlot = GateSlots::Record;
constexpr uint32_t kCalls = 0;
constexpr uint32_t kCallbackTurn = 1;
// Trivially destructible, so no thread-exit work is registered for it.
struct ThreadState {
    GateSlots::Ticket ticket;  // this thread's claim in the registry (its own slot, if any)
    GateSlot* fast;      // the own slot once the gate counts this thread's calls there
    bool callbackInSlot;  // the outermost callback under way was counted in the own slot
    uint32_t shard;
    uint32_t depth;      // calls of this thread inside the engine (nested through callbacks)
    uint32_t callbacks;  // engine callbacks this thread is running
};
extern ORBPERIX_TRIVIAL_THREAD_LOCAL ThreadState t_gate;
// The generation of the live load; 0 while the gate is closed.
extern std::atomic<uint64_t> g_liveGeneration;
bool EnterSlow(const EngineLoad& load) noexcept;
void LeaveShard() noexcept;
}  // namespace detail

// Low level: counts this thread in before a call through `load`; false (and nothing counted)
// when the load is not live. Every true must be matched by Leave on the same thread.
// Inline: it brackets every engine call. The fast form is a thread's own slot; the first call
// of a thread and threads without an own slot take EnterSlow.
inline bool Enter(const EngineLoad& load) noexcept {
    // Cheap refusal first: a closed gate or a dead load costs one read.
    if (load.generation == 0 ||
        detail::g_liveGeneration.load(std::memory_order_relaxed) != load.generation) {
        return false;
    }
    detail::ThreadState& self = detail::t_gate;
    detail::GateSlot* const slot = self.fast;
    if (ORBPERIX_UNLIKELY(slot == nullptr)) {
        return detail::EnterSlow(load);
    }
    // Only this thread writes its slot: a plain store announces the call. Close's heavy
    // barrier makes it visible before Close reads the slots, so either Close sees this count
    // or this thread sees the closed gate below.
    std::atomic<uint64_t>& calls = slot->words[detail::kCalls];
    const uint64_t count = calls.load(std::memory_order_relaxed);
    detail::GateSlots::Announce(calls, count + 1);
    if (detail::g_liveGeneration.load(std::memory_order_relaxed) != load.generation) {
        detail::GateSlots::Withdraw(calls, count);
        return false;
    }
    ++self.depth;
    return true;
}

inline void Leave() noexcept {
    detail::ThreadState& self = detail::t_gate;
    --self.depth;
    // As Enter counted: `fast` is set once, between calls, before the first one counted in the
    // own slot.
    if (detail::GateSlot* const slot = self.fast) {
        std::atomic<uint64_t>& calls = slot->words[detail::kCalls];
        detail::GateSlots::Withdraw(calls, calls.load(std::memory_order_relaxed) - 1);
    } else {
        detail::LeaveShard();
    }
}

// Marks the calling thread as running inside an engine callback for its lifetime (every entry
// point the engine calls opens one, before it looks anything up), so that a Finalize made from
// a host listener on that thread does not unload the engine under its own caller, and so that
// WaitForCallbacks can tell when the callbacks under way have returned.
class CallbackScope {
public:
    CallbackScope() noexcept;
    ~CallbackScope();
    CallbackScope(const CallbackScope&) = delete;
    CallbackScope& operator=(const CallbackScope&) = delete;
};

// Waits until every engine callback that was under way on another thread when it was called
// has returned (callbacks that start later are not waited for; one the calling thread is
// running itself is not either). False when some are still running after `timeoutMs`. A host
// calls it after forgetting its listeners (disconnect, de-initialisation) and before freeing
// what they use: a callback that had already found a listener may otherwise still call it.
bool WaitForCallbacks(uint32_t timeoutMs) noexcept;

// RAII form of Enter/Leave, for a caller that makes several engine calls or must know whether
// the engine was reached.
class EnginePass {
public:
    explicit EnginePass(const EngineLoad& load) noexcept : entered_(Enter(load)) {}
    ~EnginePass() {
        if (entered_) {
            Leave();
        }
    }
    EnginePass(const EnginePass&) = delete;
    EnginePass& operator=(const EnginePass&) = delete;
    explicit operator bool() const noexcept { return entered_; }

private:
    const bool entered_;
};

template <typename Result>
constexpr Result NotAvailable() noexcept {
    if constexpr (std::is_pointer<Result>::value) {
        return nullptr;
    } else {
        return static_cast<Result>(kEngineNotAvailable);
    }
}

// Calls `entry` (a slot of one of `load`'s tables) through the gate: -13 (or a null handle)
// when the load is not live or the engine left the slot empty. While a capture runs, the call
// is recorded (capture/traced_call.h); otherwise that costs one relaxed load and a branch.
template <typename Result, typename... Params, typename... Args>
Result Call(const EngineLoad& load, Result (*entry)(Params...), Args&&... args) noexcept {
    if (entry == nullptr || !Enter(load)) {
        return NotAvailable<Result>();
    }
    Result result = ORBPERIX_UNLIKELY(capture::On())
                        ? capture::TracedCall(capture::PayloadKind::kNone, load, entry,
                                              std::forward<Args>(args)...)
                        : entry(std::forward<Args>(args)...);
    Leave();
    return result;
}

}  // namespace engine
}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_ENGINE_ENGINE_GATE_H_
