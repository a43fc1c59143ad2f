// The strict side of the simulated engine's core: service handles as heap blocks with a
// quarantine, violations, the per-slot call hook and delay, and the bookkeeping that lets a
// release wait for callbacks running on other threads. Internal to the core library.
#ifndef PERIX_SIM_STRICT_H_
#define PERIX_SIM_STRICT_H_

namespace perix_sim_strict {

// Opened at the top of every slot of the four tables, on the calling thread. It runs the call
// hook, and for a slot that takes a service handle (`takesHandle`) reports a non-null handle
// that is released or was never issued as a violation. Its destructor sleeps the slot's delay,
// so the slot returns that much later.
class SlotScope {
public:
    SlotScope(int table, int slot, void* handle, bool takesHandle);
    ~SlotScope();
    SlotScope(const SlotScope&) = delete;
    SlotScope& operator=(const SlotScope&) = delete;

    // False when the handle check reported a violation (abort off): the slot records the call
    // and returns without touching the handle's state.
    bool HandleOk() const { return handleOk_; }

private:
    int table_;
    int slot_;
    bool handleOk_ = true;
};

// A new live handle (a heap block of the core).
void* CreateHandle();
// The releasing form of PERIXReleaseServiceHandle for a handle that SlotScope accepted: runs
// the release hook, waits for callbacks of `handle` running on other threads, then poisons the
// block and keeps it in the quarantine.
void ReleaseHandle(void* handle);

// Held by perix_sim_fire_* around a listener callback for `handle`, so that a release on
// another thread waits for it.
class FireScope {
public:
    explicit FireScope(void* handle);
    ~FireScope();
    FireScope(const FireScope&) = delete;
    FireScope& operator=(const FireScope&) = delete;

private:
    void* handle_;
};

// The slot's name ("PERIXStartService"), static; defined with the slot lists in sim_engine.cpp.
const char* SlotName(int table, int slot);

// Prints "perix_sim: STRICT ENGINE VIOLATION: <what>", counts it, aborts unless turned off.
void Violation(const char* what);

// perix_sim_reset's part: frees the quarantine, drops hooks and delays, zeroes the violation
// count and turns abort on again. Live handles stay live (the library may still hold them).
void Reset();

}  // namespace perix_sim_strict

#endif  // PERIX_SIM_STRICT_H_
