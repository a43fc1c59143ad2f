// Handles, quarantine, violations, hooks and delays of the simulated engine's core.
#include "sim_strict.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "perix_sim.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define PERIX_SIM_ASAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) && !defined(PERIX_SIM_ASAN)
#define PERIX_SIM_ASAN 1
#endif
#if defined(PERIX_SIM_ASAN)
#include <sanitizer/asan_interface.h>
#define PERIX_SIM_POISON(p, n) ASAN_POISON_MEMORY_REGION(p, n)
#define PERIX_SIM_UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION(p, n)
#else
#define PERIX_SIM_POISON(p, n) ((void)(p), (void)(n))
#define PERIX_SIM_UNPOISON(p, n) ((void)(p), (void)(n))
#endif

namespace {

constexpr int kTables = 4;
constexpr int kMaxSlots = 17;
constexpr uint64_t kLiveMagic = 0x50455249584c4956ull;      // "PERIXLIV"
constexpr uint64_t kReleasedMagic = 0xdeadd00ddeadd00dull;
// How long a release waits for another thread's callback before calling it a deadlock.
constexpr std::chrono::seconds kReleaseWaitLimit{10};

// What a service handle points at. The library must treat it as opaque; the magic word only
// makes a released block recognisable in a debugger or a crash dump.
struct HandleBlock {
    uint64_t magic;
    uint64_t serial;
};

struct Strict {
    std::mutex mutex;
    std::condition_variable fireEnded;  // a listener callback returned
    std::set<void*> live;
    std::set<void*> quarantine;  // released blocks, kept (never freed) until perix_sim_reset
    uint64_t serial = 0;
    // Listener callbacks running now: handle -> the threads running one for it.
    std::multimap<void*, std::thread::id> firing;

    perix_sim_call_hook callHook = nullptr;
    void* callHookContext = nullptr;
    perix_sim_release_hook releaseHook = nullptr;
    void* releaseHookContext = nullptr;

    // Read on every slot call without the mutex.
    std::atomic<bool> anyCallHook{false};
    std::atomic<uint32_t> delays[kTables][kMaxSlots] = {};
    std::atomic<int> violations{0};
    std::atomic<bool> abortOnViolation{true};
    // Slot calls between SlotScope's constructor and the end of its destructor.
    std::atomic<int> callsInFlight{0};
};

Strict& S() {
    // Never destroyed: slots and callbacks may run from exit-time destructors of other modules.
    static Strict* strict = new Strict();
    return *strict;
}

bool ValidSlot(int table, int slot) {
    return table >= 0 && table < kTables && slot >= 0 && slot < kMaxSlots;
}

std::string Hex(const void* p) {
    char text[32];
    std::snprintf(text, sizeof(text), "%p", p);
    return text;
}

}  // namespace

namespace perix_sim_strict {

void Violation(const char* what) {
    Strict& s = S();
    s.violations.fetch_add(1);
    std::fprintf(stderr, "perix_sim: STRICT ENGINE VIOLATION: %s\n", what);
    std::fflush(stderr);
    if (s.abortOnViolation.load()) {
        std::abort();
    }
}

SlotScope::SlotScope(int table, int slot, void* handle, bool takesHandle)
    : table_(table), slot_(slot) {
    Strict& s = S();
    s.callsInFlight.fetch_add(1);
    if (s.anyCallHook.load(std::memory_order_relaxed)) {
        perix_sim_call_hook hook = nullptr;
        void* context = nullptr;
        {
            std::lock_guard<std::mutex> lock(s.mutex);
            hook = s.callHook;
            context = s.callHookContext;
        }
        if (hook != nullptr) {
            hook(context, table, slot, takesHandle ? handle : nullptr);
        }
    }
    if (!takesHandle || handle == nullptr) {
        return;  // a null handle is the library's to pass in the cases it is specified for
    }
    const char* state = nullptr;
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        if (s.live.count(handle) == 0) {
            state = s.quarantine.count(handle) != 0 ? "released" : "unknown (never issued)";
        }
    }
    if (state != nullptr) {
        handleOk_ = false;
        const std::string what = std::string(SlotName(table, slot)) + " called with " + state +
                                 " handle " + Hex(handle);
        Violation(what.c_str());
    }
}

SlotScope::~SlotScope() {
    Strict& s = S();
    if (ValidSlot(table_, slot_)) {
        const uint32_t ms = s.delays[table_][slot_].load(std::memory_order_relaxed);
        if (ms != 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(ms));
        }
    }
    s.callsInFlight.fetch_sub(1);
}

void* CreateHandle() {
    Strict& s = S();
    auto* block = new HandleBlock{kLiveMagic, 0};
    std::lock_guard<std::mutex> lock(s.mutex);
    block->serial = ++s.serial;
    s.live.insert(block);
    return block;
}

void ReleaseHandle(void* handle) {
    Strict& s = S();
    perix_sim_release_hook hook = nullptr;
    void* context = nullptr;
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        hook = s.releaseHook;
        context = s.releaseHookContext;
    }
    if (hook != nullptr) {
        hook(context, handle);  // may fire or post notifications for the handle
    }

    // A real engine frees the handle only once none of its threads is inside a callback for
    // it. A callback on this very thread (the library releasing from inside one) is not waited
    // for: it cannot return before this call does.
    const std::thread::id self = std::this_thread::get_id();
    std::unique_lock<std::mutex> lock(s.mutex);
    auto othersFiring = [&] {
        auto range = s.firing.equal_range(handle);
        for (auto it = range.first; it != range.second; ++it) {
            if (it->second != self) {
                return true;
            }
        }
        return false;
    };
    if (!s.fireEnded.wait_for(lock, kReleaseWaitLimit, [&] { return !othersFiring(); })) {
        lock.unlock();
        const std::string what = "PERIXReleaseServiceHandle release deadlock: handle " +
                                 Hex(handle) + " is still in a callback on another thread after " +
                                 std::to_string(kReleaseWaitLimit.count()) + " s";
        Violation(what.c_str());
        lock.lock();
    }
    if (s.live.erase(handle) == 0) {
        // Another thread released it while this one waited: a second release all the same.
        lock.unlock();
        const std::string what =
            "PERIXReleaseServiceHandle called with released handle " + Hex(handle);
        Violation(what.c_str());
        return;
    }
    auto* block = static_cast<HandleBlock*>(handle);
    block->magic = kReleasedMagic;
    PERIX_SIM_POISON(block, sizeof(*block));
    s.quarantine.insert(handle);
}

FireScope::FireScope(void* handle) : handle_(handle) {
    std::lock_guard<std::mutex> lock(S().mutex);
    S().firing.emplace(handle, std::this_thread::get_id());
}

FireScope::~FireScope() {
    Strict& s = S();
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        auto range = s.firing.equal_range(handle_);
        for (auto it = range.first; it != range.second; ++it) {
            if (it->second == std::this_thread::get_id()) {
                s.firing.erase(it);
                break;
            }
        }
    }
    s.fireEnded.notify_all();
}

void Reset() {
    Strict& s = S();
    std::vector<void*> freed;
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        freed.assign(s.quarantine.begin(), s.quarantine.end());
        s.quarantine.clear();
        s.callHook = nullptr;
        s.callHookContext = nullptr;
        s.releaseHook = nullptr;
        s.releaseHookContext = nullptr;
    }
    for (void* p : freed) {
        PERIX_SIM_UNPOISON(p, sizeof(HandleBlock));
        delete static_cast<HandleBlock*>(p);
    }
    s.anyCallHook.store(false);
    for (auto& table : s.delays) {
        for (auto& delay : table) {
            delay.store(0);
        }
    }
    s.violations.store(0);
    s.abortOnViolation.store(true);
}

}  // namespace perix_sim_strict

extern "C" {

void perix_sim_set_slot_delay(int table, int slot, uint32_t ms) {
    if (ValidSlot(table, slot)) {
        S().delays[table][slot].store(ms);
    }
}

void perix_sim_set_call_hook(perix_sim_call_hook hook, void* context) {
    Strict& s = S();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.callHook = hook;
    s.callHookContext = context;
    s.anyCallHook.store(hook != nullptr);
}

void perix_sim_set_release_hook(perix_sim_release_hook hook, void* context) {
    Strict& s = S();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.releaseHook = hook;
    s.releaseHookContext = context;
}

int perix_sim_live_handle_count(void) {
    std::lock_guard<std::mutex> lock(S().mutex);
    return static_cast<int>(S().live.size());
}

int perix_sim_handle_is_released(void* handle) {
    std::lock_guard<std::mutex> lock(S().mutex);
    return S().quarantine.count(handle) != 0 ? 1 : 0;
}

int perix_sim_violation_count(void) { return S().violations.load(); }

int perix_sim_calls_in_flight(void) { return S().callsInFlight.load(); }

void perix_sim_set_abort_on_violation(int on) { S().abortOnViolation.store(on != 0); }

}  // extern "C"
