/* Control interface of the simulated PERIX engine (liborbperix), built from this repository
 * so that tests, tools and the demo run OrbPerixProvider against an engine that records
 * every call.
 *
 * The simulated engine exports the four getters of the real engine and fills every slot of
 * the four tables. Each slot call is recorded with its arguments, in order. Results of slots
 * and getters are settable. The engine's callbacks (listeners, button, audio, refresh) can be
 * fired on the calling thread.
 *
 * All functions are safe to call from any thread. A program that links the simulated engine
 * shares its state with the copy that OrbPerixProvider loads from the executable's directory
 * (the same file is loaded once). */
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

/* Back to a fresh engine: no calls, every result 0, no handles, no callbacks. */
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

/* Fire the engine's callbacks on the calling thread, as the engine does on its threads. Each
 * returns -1 when no callback is registered (for the listener kinds: for that handle), else 0
 * or the callback's own result. The records are passed to the callback as given (null
 * included). */
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
}
#endif

#endif /* PERIX_SIM_H_ */
