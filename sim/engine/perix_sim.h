/* Control interface of the simulated PERIX engine, built from this repository so that tests,
 * tools and the demo run OrbPerixProvider against an engine that records every call.
 *
 * The engine is two libraries. The module that OrbPerixProvider loads from the executable's
 * folder (liborbperix, as the real engine is named) exports the four getters and nothing else;
 * every slot it hands out is a trampoline of its own, so it holds no state and the library's
 * unload really unmaps it. The core (libperixsim) holds all the state and exports this
 * interface; programs link it, the module imports it.
 *
 * Each slot call is recorded with its arguments, in order. Results of slots and getters are
 * settable. The engine's callbacks (listeners, button, audio, refresh) can be fired on the
 * calling thread.
 *
 * The engine is strict, as a real closed engine is, so that faults of the library show:
 * - Service handles are heap blocks. PERIXReleaseServiceHandle releases one, whatever follows
 *   the handle (the sink provider's disconnect passes its device record and argument too): the
 *   block is poisoned and kept in a quarantine (its address is not reused until
 *   perix_sim_reset). Any later slot call with that handle, a second release, or a call with a
 *   non-null handle that was never issued, is a VIOLATION. A null handle is not one.
 * - A violation prints one line "perix_sim: STRICT ENGINE VIOLATION: ..." to stderr, is
 *   counted, and aborts the process unless perix_sim_set_abort_on_violation(0).
 * - Callback records are kept by address, as registered (PERIXRegisterListener per handle, the
 *   three RegisterCallback slots once each), and read at fire time. They stay stored after the
 *   handle is released, after PERIXUnRegisterListener and after the module is unloaded, until
 *   perix_sim_reset, so a notification can be fired at any time (firing for a released handle
 *   is the engine calling late, not a violation).
 * - The releasing PERIXReleaseServiceHandle waits until no listener callback for that handle
 *   runs on another thread (fired through perix_sim_fire_*); waiting more than 10 s is a
 *   "release deadlock" violation.
 *
 * All functions are safe to call from any thread. */
#ifndef PERIX_SIM_H_
#define PERIX_SIM_H_

#include <stdint.h>

#ifdef __cplusplus
#include "orbperix/engine_tables.h"
#else
/* C programs (the C interface's test) use the control functions; the engine records stay
 * incomplete types for them. */
typedef struct PerixDeviceChangeNotify PerixDeviceChangeNotify;
typedef struct PerixServiceChangeNotify PerixServiceChangeNotify;
typedef struct BinaryData BinaryData;
typedef struct PerixButtonIdentity PerixButtonIdentity;
typedef struct PerixButtonNotify PerixButtonNotify;
typedef struct PerixServiceId PerixServiceId;
typedef struct PerixStreamNotify PerixStreamNotify;
#endif

#if defined(_WIN32)
#if defined(PERIX_SIM_COMPILING)
#define PERIX_SIM_API __declspec(dllexport)
#else
#define PERIX_SIM_API __declspec(dllimport)
#endif
#else
#define PERIX_SIM_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

enum perix_sim_table {
    PERIX_SIM_MAIN = 0,    /* OrbPERIXHandler, 17 slots */
    PERIX_SIM_BUTTON = 1,  /* ButtonHandlerSource, 4 slots */
    PERIX_SIM_AUDIO = 2,   /* AudioHandlerSource, 8 slots */
    PERIX_SIM_REFRESH = 3  /* RefreshHandlerSource, 4 slots */
};

/* Pseudo slot number under which getter calls are recorded. */
#define PERIX_SIM_GETTER_SLOT (-1)

/* One recorded call. Pointer arguments are recorded as integers. `text` holds the text that
 * the call carried: the init text, the peer device id of a PERIXInfo, the service id of a
 * virtual-service record, the device id of a channel identity. `text2` holds a second text
 * (the service id of a channel identity). `values` holds the numbers the call carried, in
 * argument order (types, lengths, flags, serverPort, connectType, ...). */
typedef struct perix_sim_call {
    int table;
    int slot;
    const char* name; /* the slot's name, static */
    uint64_t args[4];
    int64_t result;
    char text[260];
    char text2[260];
    uint32_t values[6];
} perix_sim_call;

/* A text or byte field of a malformed notification (perix_sim_peer_post_*_raw,
 * perix_sim_deliver_*_raw). `bytes` bytes are copied from `data` into a block of exactly that
 * size (nothing is read when `data` is null); the delivered record points at the copy, or is
 * null when `data` is null, and carries `reported` as its length whatever it is: non-zero with
 * null data, or far beyond `bytes`. The engine itself never reads past `bytes`. */
typedef struct perix_sim_raw_field {
    const void* data;
    uint32_t bytes;
    uint32_t reported;
} perix_sim_raw_field;

/* Back to a fresh engine: no calls, every result 0, no released handles, no callback records,
 * no hooks or delays, no violations, abort on violation. Handles still live stay live. */
PERIX_SIM_API void perix_sim_reset(void);

/* Result of a getter from now on (0 fills the table; non-zero leaves it untouched). */
PERIX_SIM_API void perix_sim_set_getter_result(int table, int result);
/* Result of a slot from now on. For PERIXCreateServiceHandle a result of 0 makes it return a
 * null handle and any other value restores the default (a new handle per call). */
PERIX_SIM_API void perix_sim_set_slot_result(int table, int slot, int64_t result);
/* Trace id that PERIXGetConnectionStatus reports from now on (default 0). */
PERIX_SIM_API void perix_sim_set_trace_id(uint64_t traceId);

/* Recorded calls. */
PERIX_SIM_API int perix_sim_call_count(void);
PERIX_SIM_API int perix_sim_get_call(int index, perix_sim_call* out);
/* Counts the recorded calls of one slot (getter calls: slot PERIX_SIM_GETTER_SLOT). */
PERIX_SIM_API int perix_sim_count_calls(int table, int slot);
/* Finds the n-th (0-based) recorded call of one slot; 0 when found, -1 otherwise. */
PERIX_SIM_API int perix_sim_find_call(int table, int slot, int nth, perix_sim_call* out);
PERIX_SIM_API void perix_sim_clear_calls(void);

/* The handle that PERIXCreateServiceHandle returned last (null before any). */
PERIX_SIM_API void* perix_sim_last_handle(void);

/* Fire the engine's callbacks on the calling thread, as the engine does on its threads. The
 * function pointer is read through the stored record at this moment. Each returns -1 when no
 * record is stored (for the listener kinds: for that handle) or its pointer is null, else 0 or
 * the callback's own result. The notification records are passed as given (null included). */
PERIX_SIM_API int perix_sim_fire_device_change(void* handle, const PerixDeviceChangeNotify* notify);
PERIX_SIM_API int perix_sim_fire_service_change(void* handle,
                                                const PerixServiceChangeNotify* notify);
PERIX_SIM_API int perix_sim_fire_data(void* handle, const BinaryData* data);
PERIX_SIM_API int perix_sim_fire_button(const PerixButtonIdentity* identity,
                                        const PerixButtonNotify* notify);
PERIX_SIM_API int perix_sim_fire_audio(const PerixServiceId* service,
                                       const PerixStreamNotify* data);
PERIX_SIM_API int perix_sim_fire_refresh(const PerixServiceId* service,
                                         const PerixStreamNotify* data);

#ifdef __cplusplus
/* Copies the core's own tables (what the module's trampolines forward to) into the non-null
 * arguments, for C++ tests that construct providers directly instead of through the manager.
 * Not recorded as getter calls. Unlike the module's tables they stay valid when the library
 * unloads the module. */
PERIX_SIM_API void perix_sim_core_tables(OrbPERIXHandler* main, ButtonHandlerSource* button,
                                         AudioHandlerSource* audio, RefreshHandlerSource* refresh);
#endif

/* ---- Strict engine ---- */

/* Called on the calling thread inside every slot call of the four tables, before the slot does
 * anything; `handle` is the slot's first argument when the slot takes a service handle, else
 * null. Null removes it. */
typedef void (*perix_sim_call_hook)(void* context, int table, int slot, void* handle);
PERIX_SIM_API void perix_sim_set_call_hook(perix_sim_call_hook hook, void* context);
/* The slot sleeps `ms` milliseconds before it returns (0: no delay), to open race windows. */
PERIX_SIM_API void perix_sim_set_slot_delay(int table, int slot, uint32_t ms);
/* Slot calls of the four tables that have entered and not yet returned (delay included). */
PERIX_SIM_API int perix_sim_calls_in_flight(void);
/* Called inside the releasing PERIXReleaseServiceHandle, on the calling thread, before it
 * waits for other threads' callbacks and frees the handle (so a test can fire or post
 * notifications during a release). Null removes it. */
typedef void (*perix_sim_release_hook)(void* context, void* handle);
PERIX_SIM_API void perix_sim_set_release_hook(perix_sim_release_hook hook, void* context);

/* 1 while the engine module (liborbperix) is mapped in the process, else 0. */
PERIX_SIM_API int perix_sim_engine_mapped(void);
/* How many times the module was mapped and unmapped in this process (not reset). */
PERIX_SIM_API int perix_sim_module_loads(void);
PERIX_SIM_API int perix_sim_module_unloads(void);

/* Handles created and not released (perix_sim_reset keeps them: the library may hold them). */
PERIX_SIM_API int perix_sim_live_handle_count(void);
/* 1 when `handle` was released and is in the quarantine. */
PERIX_SIM_API int perix_sim_handle_is_released(void* handle);
/* Violations since the last perix_sim_reset. */
PERIX_SIM_API int perix_sim_violation_count(void);
/* 0: a violation is printed and counted only (tests of the engine itself); other: it also
 * aborts (the default, restored by perix_sim_reset). */
PERIX_SIM_API void perix_sim_set_abort_on_violation(int on);

#ifdef __cplusplus
}
#endif

#endif /* PERIX_SIM_H_ */
