/* OrbPerixProvider's flat C interface: the same library for hosts built with any compiler or
 * written in any language that can call C (C#, Rust, Python ctypes, ...).
 *
 * Every function wraps one operation of the C++ interface (orbperix/manager.h,
 * orbperix/providers.h, orbperix/cast.h) and returns that operation's result code unchanged:
 * 0 success, -2 invalid argument or wrong service type, -3 out of memory, -4 wrong state,
 * -5 a sink record with server port 0, -9 a session-key copy failure, -13 engine, handle,
 * session or copy not available; any other value is the engine's own result. The operation
 * writes the same log lines as through C++. The wrapper adds one error line, and one of the
 * codes below, only for failures of its own (an unknown handle, a missing record it must read).
 *
 * Handles are numbers, not pointers: 0 is never a valid handle; a destroyed handle stays
 * invalid for good (each slot of the handle table carries a generation count). Using an
 * unknown, stale or destroyed handle, or a handle of another kind, returns
 * ORBPERIX_C_BAD_HANDLE and logs one error line; it never touches freed memory.
 *
 * Strings and records going in are copied (or only read during the call); nothing the library
 * returns has to be freed by the host. Texts passed as (pointer, length) take a length in
 * bytes, or -1 for a NUL-terminated text. No exception leaves these functions.
 *
 * Threads: every function may be called from any thread. The manager and create/destroy
 * functions are serialised inside the wrapper. A destroy returns once the calls other threads
 * were making on that handle have finished and the provider is destroyed; orbperix_finalize
 * returns once no call is inside the engine any more, and afterwards every provider operation
 * that would reach the engine returns -13. Listener callbacks run on the engine's threads; no
 * lock of the library is held while they run. A C listener belongs to the session it was
 * registered for and goes with it (disconnect, deinit). */
#ifndef ORBPERIX_ORBPERIX_C_H_
#define ORBPERIX_ORBPERIX_C_H_

#include <stddef.h>
#include <stdint.h>

#include "orbperix/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Result codes ----
 *
 * Every result the library returns has a name here; any other value is the engine's own result,
 * passed on unchanged. orbperix_result_text turns any of them into a short English text. */

#define ORBPERIX_C_OK (0)
/* The remote-control encoder refused the event (unknown kind, too many pointers, ...). */
#define ORBPERIX_C_ENCODE_FAILED (-1)
/* A null or malformed argument, or the wrong service type. The wrapper returns it, with one error
 * line, for a record or text it must read itself that is missing or malformed. */
#define ORBPERIX_C_INVALID_ARGUMENT (-2)
/* Out of memory (one error line); the wrapper returns it when its own copy cannot be made. */
#define ORBPERIX_C_NO_MEMORY (-3)
/* Wrong state: not initialised, not registered, not connected, already connected or created. */
#define ORBPERIX_C_WRONG_STATE (-4)
/* A sink's device record has server port 0. */
#define ORBPERIX_C_SINK_PORT_ZERO (-5)
/* A session key could not be copied. */
#define ORBPERIX_C_SESSION_KEY_COPY (-9)
/* Not available: the engine (not loaded, failed to start or finalised), a getter, a service
 * handle, a session or a data copy. */
#define ORBPERIX_C_NOT_AVAILABLE (-13)
/* An unknown, stale, destroyed or wrong-kind handle (one error line is logged). */
#define ORBPERIX_C_BAD_HANDLE (-1001)
/* A listener callable of the C++ layer (orbperix.hpp) threw; reported by its owner. */
#define ORBPERIX_C_LISTENER_THREW (-1002)

/* A short English text for `code` ("out of memory", ...); never null, thread-safe. A named
 * code's text is static. A code without a name gets a generic text with its number ("engine
 * result 7"), kept in a small ring of buffers: valid until 16 more such texts were asked for. */
ORBPERIX_API const char* orbperix_result_text(int code);

/* Length of a NUL-terminated text argument. */
#define ORBPERIX_C_NUL_TERMINATED (-1)

/* ---- Handles ---- */
typedef uint64_t orbperix_input_handle;
typedef uint64_t orbperix_source_handle;
typedef uint64_t orbperix_sink_handle;
typedef uint64_t orbperix_cast_session_handle;

/* ---- Records ---- */

/* The host's group of log functions for the engine; handed to the engine unchanged. */
struct tagPERIXLogFuncGroup;

/* The device-information record (the engine's connect parameters); same layout as the C++
 * PERIXInfo. The wrapper works on a copy. */
typedef struct orbperix_device_info {
    uint32_t engine_word0;
    char local_device_id[258]; /* NUL-terminated */
    char peer_device_id[258];  /* NUL-terminated; names the peer's session */
    uint32_t local_device_id_len;
    uint32_t peer_device_id_len;
    uint8_t engine_reserved[120];
    int32_t server_port;       /* >= 0; a sink refuses 0 */
    uint32_t engine_word1;
    uint32_t engine_word2;
    uint32_t connect_type;     /* > 0 */
    uint8_t session_key[128];
} orbperix_device_info;

/* A host service: device id and service id as text and length (-1: NUL-terminated). In
 * listener calls both lengths are exact and the texts are not NUL-terminated. Service type 6 is
 * the button service, 11 partial refresh. */
typedef struct orbperix_service {
    const char* device_id;
    int32_t device_id_len;
    const char* service_id;
    int32_t service_id_len;
    uint32_t service_type;
} orbperix_service;

/* Binary data; `data` holds `len` bytes. */
typedef struct orbperix_binary {
    uint32_t word0;
    uint32_t word1;
    const uint8_t* data;
    uint32_t len;
} orbperix_binary;

/* Audio parameters of orbperix_source_open_audio; same layout as the C++ AudioParam. */
typedef struct orbperix_audio_param {
    uint32_t param0;
    uint32_t param1;
    uint32_t param2;
    uint32_t param3;
    uint32_t param4;
    uint64_t param5;
    uint32_t param6;
} orbperix_audio_param;

/* ---- Remote-control event: same layout as the C++ RemoteCtrlEvent, field by field ---- */
typedef struct orbperix_remote_touch {
    uint32_t action;        /* 0 pointer down, 1 pointer up, 2 move */
    uint8_t pointer_count;
    uint8_t pointer_ids[10];
    double x[10];
    double y[10];
} orbperix_remote_touch;

typedef struct orbperix_remote_key {
    uint32_t action;        /* 0 key down, 1 key up */
    uint16_t key_reserved;
    uint16_t key_value1;
    uint16_t key_value2;
    uint32_t key_value3;
} orbperix_remote_key;

typedef struct orbperix_remote_zoom {
    double x;
    double y;
    uint16_t zoom_value;
} orbperix_remote_zoom;

typedef struct orbperix_remote_scroll {
    uint32_t action;        /* 0 vertical, 1 horizontal */
    uint16_t scroll_value;
} orbperix_remote_scroll;

typedef struct orbperix_remote_mouse {
    uint32_t action;        /* 0 button down, 1 button up, 2 move */
    uint8_t button;
    double coords[4];
} orbperix_remote_mouse;

typedef struct orbperix_remote_wheel {
    uint32_t action;        /* 0 vertical wheel, 1 horizontal wheel */
    uint8_t buttons;
    uint16_t wheel_value;
    double x;
    double y;
} orbperix_remote_wheel;

typedef struct orbperix_remote_input_content {
    uint16_t content_length; /* 1 to 472 in the record; 1 to 217 can be sent (see post) */
    uint8_t content[472];
} orbperix_remote_input_content;

typedef struct orbperix_remote_input_focus {
    uint8_t focus_flag;
    double focus_values[4];
} orbperix_remote_input_focus;

typedef struct orbperix_remote_input {
    uint32_t action;        /* 0 content, 1 focus */
    union {
        orbperix_remote_input_content content;
        orbperix_remote_input_focus focus;
    } u;                    /* anonymous in C++; named here for C99 */
} orbperix_remote_input;

typedef struct orbperix_remote_virtual_key {
    uint32_t action;        /* 0 back, 1 home, 2 recent apps, 3 quick settings */
    double x;
    double y;
} orbperix_remote_virtual_key;

typedef struct orbperix_remote_message {
    uint32_t action;        /* 0 extend, 1 reserved */
    uint16_t message_length; /* 3 to 472 in the record; 3 to 219 can be sent (see post) */
    uint16_t message_word;
    uint8_t message_data[472];
} orbperix_remote_message;

typedef union orbperix_remote_payload {
    orbperix_remote_touch touch;
    orbperix_remote_key key;
    orbperix_remote_zoom zoom;
    orbperix_remote_scroll scroll;
    orbperix_remote_mouse mouse;
    orbperix_remote_wheel wheel;
    orbperix_remote_input input;
    orbperix_remote_virtual_key virtual_key;
    orbperix_remote_message message;
} orbperix_remote_payload;

/* Event kinds of orbperix_remote_event.type. */
enum orbperix_remote_type {
    ORBPERIX_REMOTE_TOUCH = 0,
    ORBPERIX_REMOTE_KEY = 1,
    ORBPERIX_REMOTE_ZOOM = 2,
    ORBPERIX_REMOTE_SCROLL = 3,
    ORBPERIX_REMOTE_ROTATE = 4,
    ORBPERIX_REMOTE_RESERVED_KIND = 5,
    ORBPERIX_REMOTE_MOUSE = 6,
    ORBPERIX_REMOTE_TEXT_INPUT = 7,
    ORBPERIX_REMOTE_WHEEL = 8,
    ORBPERIX_REMOTE_VIRTUAL_KEY = 9,
    ORBPERIX_REMOTE_MESSAGE = 10
};

typedef struct orbperix_remote_event {
    uint32_t header_flags;  /* only bits 0x08, 0x20 and 0x40 of the low byte are read */
    uint32_t header_tag;    /* its low byte goes into the packet header */
    uint32_t reserved;
    uint32_t type;          /* enum orbperix_remote_type */
    orbperix_remote_payload payload;
} orbperix_remote_event;

/* ---- Listener ---- */

typedef struct orbperix_device_change {
    const char* device_id;  /* not NUL-terminated */
    uint32_t device_id_len;
    uint32_t word0;
    uint32_t word1;
} orbperix_device_change;

typedef struct orbperix_service_change {
    const char* device_id;
    uint32_t device_id_len;
    const char* service_id;
    uint32_t service_id_len;
    uint32_t word0;
    uint32_t word1;
    uint32_t word2;
} orbperix_service_change;

typedef struct orbperix_button_notify {
    uint32_t word0;
    uint32_t word1;
    const uint8_t* data;    /* null when data_len is 0 */
    uint32_t data_len;
} orbperix_button_notify;

/* Audio and partial-refresh deliveries (`reserved` is the refresh record's field, 0 for
 * audio). */
typedef struct orbperix_stream_data {
    uint32_t a;
    uint32_t b;
    uint32_t reserved;
    const uint8_t* data;    /* null when data_len is 0 */
    uint32_t data_len;
} orbperix_stream_data;

/* The host's notification callbacks; a null entry means "not wanted". Each is called on an
 * engine thread with the user_data given at registration. Every pointer it receives (records,
 * texts, payloads) is valid only during the call: copy what you keep. A notification is routed
 * by provider kind and by the device id it carries to the listener registered for that peer;
 * one that names no registered peer is dropped with an error line. A peer's listener is
 * forgotten when its disconnect succeeds or a provider of its kind is de-initialised (the
 * library's sessions of a kind are process-wide); a call already under way may still finish
 * after that: orbperix_wait_for_listeners waits for it, before the host frees its user_data. */
typedef struct orbperix_listener {
    void (*on_device_change)(void* user_data, const orbperix_device_change* info);
    void (*on_service_change)(void* user_data, const orbperix_service_change* info);
    void (*on_data)(void* user_data, const char* device_id, uint32_t device_id_len,
                    const orbperix_binary* data);
    void (*on_audio)(void* user_data, const orbperix_service* service,
                     const orbperix_stream_data* data);
    void (*on_button)(void* user_data, const orbperix_service* service,
                      const orbperix_button_notify* info);
    void (*on_partial_refresh)(void* user_data, const orbperix_service* service,
                               const orbperix_stream_data* data);
} orbperix_listener;

/* ---- Manager ---- */

/* Loads and initialises the engine. 0; -4 already initialised; -13 engine or getter missing;
 * else the engine's result. init_text is NUL-terminated (null: ORBPERIX_C_INVALID_ARGUMENT). */
ORBPERIX_API int orbperix_initialize(struct tagPERIXLogFuncGroup* log_funcs,
                                     const char* init_text);
/* Where orbperix_initialize loads the engine from: `path` (UTF-8) names the engine's file, or a
 * folder that holds it under its usual name (liborbperix.dll / liborbperix.so); a relative path
 * is taken from the current directory. Null or "" restores the default, the executable's folder.
 * When no path is set this way, the environment variable ORBPERIX_ENGINE_PATH, read at each
 * initialisation, has the same effect. With a path, only that place is tried: an engine that
 * cannot be loaded there makes orbperix_initialize return -13 with the line "LoadLibrary
 * failed", as the default place does. Takes effect at the next initialisation: 0; -4 while
 * initialised (nothing changes); ORBPERIX_C_NO_MEMORY. */
ORBPERIX_API int orbperix_set_engine_path(const char* path);
/* 1 when initialised, else 0. */
ORBPERIX_API int orbperix_is_initialized(void);
/* Releases and unloads the engine; nothing when not initialised. */
ORBPERIX_API void orbperix_finalize(void);

/* Writes one error line `text` under the scope `where` through the library's log, beside the
 * library's own lines. For layers built over this interface (orbperix.hpp) that must report a
 * failure of their own; a null text or scope is written as empty. */
ORBPERIX_API void orbperix_log_error(const char* where, const char* text);

/* Waits until every listener call (and every other engine notification) that was under way on
 * another thread when it was called has returned; calls that start later are not waited for,
 * nor one the calling thread is running itself. 0; -13 when some are still running after
 * `timeout_ms`. Call it after a disconnect or de-initialisation and before freeing what the
 * forgotten listeners use. Do not hold a lock that a listener takes while it waits. */
ORBPERIX_API int orbperix_wait_for_listeners(uint32_t timeout_ms);

/* ---- Developer log ----
 *
 * Every line the library logs can also go to stderr, a file or a callback of the host's, with
 * its level and scope, plus the details of a failed start (the engine path tried, the system's
 * reason, the failing step) that the host installation's logging libraries do not receive.
 * Those libraries receive exactly the same lines whether this is on or off. The environment
 * variables ORBPERIX_LOG ("stderr" or a file path) and ORBPERIX_LOG_LEVEL ("trace", "debug",
 * "warn", "info", "error" or 0-4; "info" when unset) turn it on at the first initialisation. */

#define ORBPERIX_C_LOG_TRACE 0
#define ORBPERIX_C_LOG_DEBUG 1
#define ORBPERIX_C_LOG_WARN 2
#define ORBPERIX_C_LOG_INFO 3
#define ORBPERIX_C_LOG_ERROR 4

/* Called on whichever thread logs (host, engine or heartbeat threads), never while a lock of the
 * library is held, so it may call the library. `scope` and `text` are UTF-8, valid for the call.
 * A line the callback itself causes on its thread is not passed to it again. A callback that
 * throws (a C++ host's) loses that line only; a slow one slows the thread that logs. */
typedef void (*orbperix_log_fn)(void* user_data, int level, const char* scope, const char* text);

/* Lines at `level` or above go to `fn` (null: none). Returns once no call of the previous callback
 * is under way on another thread: 0, and the host may free the previous user_data; -13 when one
 * still runs after 2 s (the previous user_data must stay); ORBPERIX_C_INVALID_ARGUMENT for a
 * level outside 0-4. Any thread, any time, also before orbperix_initialize. */
ORBPERIX_API int orbperix_set_log_callback(int level, orbperix_log_fn fn, void* user_data);
/* Lines at `level` or above go to `destination`: "stderr", a file path (UTF-8; created or
 * truncated), or null/empty for none. 0; -13 when the file cannot be opened (the reason is
 * printed to stderr); ORBPERIX_C_INVALID_ARGUMENT for a level outside 0-4. */
ORBPERIX_API int orbperix_set_log_output(const char* destination, int level);

/* ---- Create and destroy ---- */

/* A new provider's handle, or 0 when the library or the handle table could not make one. */
ORBPERIX_API orbperix_input_handle orbperix_create_input_provider(void);
ORBPERIX_API orbperix_source_handle orbperix_create_source_provider(void);
ORBPERIX_API orbperix_sink_handle orbperix_create_sink_provider(void);
/* 1 when the manager released the provider, 0 when it did not know it; ORBPERIX_C_BAD_HANDLE.
 * The handle is invalid afterwards either way. Neither disconnects nor de-initialises (the
 * provider's destructor does what it does in C++ once no call is using it any more). */
ORBPERIX_API int orbperix_destroy_input_provider(orbperix_input_handle provider);
ORBPERIX_API int orbperix_destroy_source_provider(orbperix_source_handle provider);
ORBPERIX_API int orbperix_destroy_sink_provider(orbperix_sink_handle provider);

/* ---- Input provider ----
 * Each returns the C++ operation's result, or ORBPERIX_C_BAD_HANDLE. A null record is passed to
 * the C++ operation as a null pointer (its own result and line), except where noted. */

/* Starts the heartbeat; 0, or -13 when its thread cannot start. */
ORBPERIX_API int orbperix_input_init(orbperix_input_handle provider);
/* Stops the heartbeat and tears down the input sessions; 0. Forgets the input listeners. */
ORBPERIX_API int orbperix_input_deinit(orbperix_input_handle provider);
/* 0; -2 invalid record; -4 no session or already connected; -9; the engine's result. */
ORBPERIX_API int orbperix_input_connect_device(orbperix_input_handle provider,
                                               const orbperix_device_info* device);
/* 0; -2 null record; -4 not connected. Forgets the peer's listener on 0. */
ORBPERIX_API int orbperix_input_disconnect_device(orbperix_input_handle provider,
                                                  const orbperix_device_info* device);
/* Creates the peer's session and registers `listener` with `user_data` for it. 0; -4 not
 * initialised, null listener or session exists; -13; the engine's result. The listener record
 * is copied. */
ORBPERIX_API int orbperix_input_register_listener(orbperix_input_handle provider,
                                                  const orbperix_device_info* device,
                                                  const orbperix_listener* listener,
                                                  void* user_data);
/* 0 or the engine's result; -4 no session. */
ORBPERIX_API int orbperix_input_unregister_listener(orbperix_input_handle provider,
                                                    const orbperix_device_info* device);
/* 0; -2 null device id; -4 no session. `callback` goes to the engine unchanged. */
ORBPERIX_API int orbperix_input_register_data_listener(orbperix_input_handle provider,
                                                       const char* device_id, int32_t len,
                                                       uint32_t type, void* callback);
/* 0; -2 null device id; -4 no session. */
ORBPERIX_API int orbperix_input_unregister_data_listener(orbperix_input_handle provider,
                                                         const char* device_id, int32_t len,
                                                         uint32_t type);
/* Always 0 from C++ (failures are logged); ORBPERIX_C_BAD_HANDLE. */
ORBPERIX_API int orbperix_input_send_data(orbperix_input_handle provider, const char* device_id,
                                          int32_t len, const orbperix_binary* data);
ORBPERIX_API int orbperix_input_send_data_no_result(orbperix_input_handle provider,
                                                    const char* device_id, int32_t len,
                                                    const orbperix_binary* data);
ORBPERIX_API int orbperix_input_send_binary_data(orbperix_input_handle provider,
                                                 const char* device_id, int32_t len,
                                                 const orbperix_binary* data);
/* 0 or the engine's result; -2 null service or empty device id; -4 no session. */
ORBPERIX_API int orbperix_input_start_device_service(orbperix_input_handle provider,
                                                     const orbperix_service* service,
                                                     void* reserved);
ORBPERIX_API int orbperix_input_stop_device_service(orbperix_input_handle provider,
                                                    const orbperix_service* service);
/* 0 (failures are logged); a null device id is ORBPERIX_C_INVALID_ARGUMENT. */
ORBPERIX_API int orbperix_input_register_event_callback(orbperix_input_handle provider,
                                                        const char* device_id, int32_t len,
                                                        uint32_t type, void* callback);
/* 0 or the engine's result; -2 null service, type not 6, or no session. */
ORBPERIX_API int orbperix_input_open_button(orbperix_input_handle provider,
                                            const orbperix_service* service, void* reserved);
/* 0 or the engine's result; -2 null service or type not 6. */
ORBPERIX_API int orbperix_input_close_button(orbperix_input_handle provider,
                                             const orbperix_service* service, void* reserved1,
                                             void* reserved2);
/* Encodes the event and writes it to the peer's button channel. 0 or the engine's result;
 * -2 null service or event, or a too long packet; -3; -4 not connected. The event is copied.
 * The encoder's capacity is an 8-bit value (233 bytes for text input, 235 for messages, 105
 * for the other kinds), which limits what can really be sent: text input up to 217 content
 * bytes, messages up to 219 (message_length), touch up to 10 pointers. An event the encoder
 * cannot encode (a length beyond these, an unknown action, a kind without an encoding such as
 * rotate) is logged by the encoder and, as in C++, its failed length -1 goes on to the
 * engine's write as 0xFFFFFFFF bytes: the result is the engine's, which is expected to refuse a
 * length beyond any packet. */
ORBPERIX_API int orbperix_input_post_remote_ctrl_event(orbperix_input_handle provider,
                                                       const orbperix_service* service,
                                                       const orbperix_remote_event* event);
/* Writes `len` bytes to the button channel: 0 or the engine's result; -2 null service. */
ORBPERIX_API int orbperix_input_button_write_stream_buffer(orbperix_input_handle provider,
                                                           const orbperix_service* service,
                                                           const uint8_t* data, uint32_t len);
/* The engine's pass-through result. */
ORBPERIX_API int orbperix_input_send_by_handler(orbperix_input_handle provider, void* a, void* b,
                                                void* c);

/* ---- Source provider ---- (same conventions; the shared operations behave as above) */

/* 0; sets the source kind initialised. */
ORBPERIX_API int orbperix_source_init(orbperix_source_handle provider);
/* 0; tears down the source sessions. Forgets the source listeners. */
ORBPERIX_API int orbperix_source_deinit(orbperix_source_handle provider);
ORBPERIX_API int orbperix_source_connect_device(orbperix_source_handle provider,
                                                const orbperix_device_info* device);
ORBPERIX_API int orbperix_source_disconnect_device(orbperix_source_handle provider,
                                                   const orbperix_device_info* device);
ORBPERIX_API int orbperix_source_register_listener(orbperix_source_handle provider,
                                                   const orbperix_device_info* device,
                                                   const orbperix_listener* listener,
                                                   void* user_data);
ORBPERIX_API int orbperix_source_unregister_listener(orbperix_source_handle provider,
                                                     const orbperix_device_info* device);
ORBPERIX_API int orbperix_source_register_data_listener(orbperix_source_handle provider,
                                                        const char* device_id, int32_t len,
                                                        uint32_t type, void* callback);
ORBPERIX_API int orbperix_source_unregister_data_listener(orbperix_source_handle provider,
                                                          const char* device_id, int32_t len,
                                                          uint32_t type);
ORBPERIX_API int orbperix_source_send_data(orbperix_source_handle provider, const char* device_id,
                                           int32_t len, const orbperix_binary* data);
ORBPERIX_API int orbperix_source_send_data_no_result(orbperix_source_handle provider,
                                                     const char* device_id, int32_t len,
                                                     const orbperix_binary* data);
ORBPERIX_API int orbperix_source_send_binary_data(orbperix_source_handle provider,
                                                  const char* device_id, int32_t len,
                                                  const orbperix_binary* data);
ORBPERIX_API int orbperix_source_start_device_service(orbperix_source_handle provider,
                                                      const orbperix_service* service,
                                                      void* reserved);
ORBPERIX_API int orbperix_source_stop_device_service(orbperix_source_handle provider,
                                                     const orbperix_service* service);
ORBPERIX_API int orbperix_source_register_event_callback(orbperix_source_handle provider,
                                                         const char* device_id, int32_t len,
                                                         uint32_t type, void* callback);
/* 0 or the engine's result; -2 null service or parameters. The parameters are copied. */
ORBPERIX_API int orbperix_source_open_audio(orbperix_source_handle provider,
                                            const orbperix_service* service,
                                            const orbperix_audio_param* param);
/* 0 or the engine's result; -2 null service. */
ORBPERIX_API int orbperix_source_close_audio(orbperix_source_handle provider,
                                             const orbperix_service* service);
/* Hands `length` bytes to the engine (streaming path: no result from C++); 0. */
ORBPERIX_API int orbperix_source_audio_write_stream_buffer(orbperix_source_handle provider,
                                                           const orbperix_service* service,
                                                           const uint8_t* data, uint32_t length);
/* The engine's pass-through result. */
ORBPERIX_API int orbperix_source_audio_pass_through(orbperix_source_handle provider, void* a,
                                                    void* b);
/* 0 or the engine's result; -2 null service or type not 11. */
ORBPERIX_API int orbperix_source_open_partial_refresh(orbperix_source_handle provider,
                                                      const orbperix_service* service);
ORBPERIX_API int orbperix_source_close_partial_refresh(orbperix_source_handle provider,
                                                       const orbperix_service* service);
/* 0 or the engine's result; -2 null service or data, or length 0 (a negative length goes to
 * the engine, as in C++). */
ORBPERIX_API int orbperix_source_partial_refresh_write_stream_buffer(
    orbperix_source_handle provider, const orbperix_service* service, const uint8_t* data,
    int32_t length);
ORBPERIX_API int orbperix_source_send_by_handler(orbperix_source_handle provider, void* a,
                                                 void* b, void* c);

/* ---- Sink provider ---- (REQUIRES: calls on one sink serialised by the host) */

/* 0. */
ORBPERIX_API int orbperix_sink_init(orbperix_sink_handle provider);
/* 0; releases the Mesh handle when initialised (not when a disconnect released it already). */
ORBPERIX_API int orbperix_sink_deinit(orbperix_sink_handle provider);
/* Creates the Mesh handle when there is none and starts the engine's service. 0; -5 server port
 * 0 (after the engine call, as in C++); -13 no Mesh handle; the engine's result. A null record
 * is refused by the wrapper before the engine sees it: ORBPERIX_C_INVALID_ARGUMENT (-2) and one
 * line. Not initialised is no error here (the C++ sink does not check it). */
ORBPERIX_API int orbperix_sink_connect_device(orbperix_sink_handle provider,
                                              const orbperix_device_info* device);
/* 0 when the Mesh handle exists or was created; -13 when the engine gave none. */
ORBPERIX_API int orbperix_sink_create_mesh_provider(orbperix_sink_handle provider,
                                                    const orbperix_device_info* device);
/* The engine's release result: the engine releases the Mesh handle. The sink keeps it, but
 * later calls do not pass it to the engine: they return -13 until deinit; after deinit and init
 * the next connect creates a new one. -13 with one line when there is no live handle. */
ORBPERIX_API int orbperix_sink_disconnect_device(orbperix_sink_handle provider,
                                                 const orbperix_device_info* device, void* arg);
/* The engine's connection status; -13 without asking the engine after a disconnect. */
ORBPERIX_API int orbperix_sink_get_connection_status(orbperix_sink_handle provider);
/* The engine's result; `callback` goes to the engine unchanged. */
ORBPERIX_API int orbperix_sink_register_engine_callback(orbperix_sink_handle provider,
                                                        uint32_t type, void* callback);
ORBPERIX_API int orbperix_sink_send_by_handler(orbperix_sink_handle provider, void* a, void* b,
                                               void* c);

/* ---- Cast bridge ---- */

typedef struct orbperix_cast_local_device {
    const char* device_id;    /* NUL-terminated (null: empty) */
    const char* device_name;
    uint32_t device_type;
    const char* ip_address;
} orbperix_cast_local_device;

typedef struct orbperix_cast_session_property {
    uint32_t protocol_type;
    uint32_t end_type;
    uint32_t video_width;
    uint32_t video_height;
    uint32_t video_fps;
    uint32_t audio_sample_rate;
} orbperix_cast_session_property;

/* Called on the casting engine's threads. */
typedef void (*orbperix_cast_service_died_fn)(void* user_data);
typedef void (*orbperix_cast_session_event_fn)(void* user_data, int event_code,
                                               const char* detail, uint32_t detail_len);

/* 1 success, 0 failure (the casting engine's convention). A null callback registers no
 * listener. The casting engine keeps the listener; user_data must live as long. */
ORBPERIX_API int orbperix_init_cast_engine(orbperix_cast_service_died_fn on_service_died,
                                           void* user_data);
/* 0; a null record is ORBPERIX_C_INVALID_ARGUMENT. */
ORBPERIX_API int orbperix_set_cast_engine_local_device(const orbperix_cast_local_device* device);
/* A session handle, or 0 when the casting engine made none (or a null record). */
ORBPERIX_API orbperix_cast_session_handle orbperix_create_cast_session(
    const orbperix_cast_session_property* property);
/* 1 / 0 as the casting engine says; ORBPERIX_C_BAD_HANDLE. The handle is invalid afterwards. */
ORBPERIX_API int orbperix_destroy_cast_session(orbperix_cast_session_handle session);
/* The session's own results; ORBPERIX_C_BAD_HANDLE. Texts as (pointer, length or -1). */
ORBPERIX_API int orbperix_cast_session_register_listener(orbperix_cast_session_handle session,
                                                         orbperix_cast_session_event_fn on_event,
                                                         void* user_data);
ORBPERIX_API int orbperix_cast_session_unregister_listener(orbperix_cast_session_handle session);
ORBPERIX_API int orbperix_cast_session_add_device(orbperix_cast_session_handle session,
                                                  const char* device_id, int32_t len);
ORBPERIX_API int orbperix_cast_session_remove_device(orbperix_cast_session_handle session,
                                                     const char* device_id, int32_t len);
ORBPERIX_API int orbperix_cast_session_start_auth(orbperix_cast_session_handle session,
                                                  const char* device_id, int32_t len);
ORBPERIX_API int orbperix_cast_session_play(orbperix_cast_session_handle session,
                                            const char* device_id, int32_t len);
/* Copies the session id, NUL-terminated and cut to capacity - 1 bytes, into `buffer` (may be
 * null with capacity 0); *full_len (may be null) receives its full length. The session's
 * result. */
ORBPERIX_API int orbperix_cast_session_get_session_id(orbperix_cast_session_handle session,
                                                      char* buffer, uint32_t capacity,
                                                      uint32_t* full_len);
ORBPERIX_API int orbperix_cast_session_set_property(
    orbperix_cast_session_handle session, const orbperix_cast_session_property* property);
ORBPERIX_API int orbperix_cast_session_release(orbperix_cast_session_handle session);

/* ---- Capture ----
 * Records every call into the engine, every engine notification and every listener call into
 * a pcapng file (Wireshark with tools/capture/orbperix.lua, or orbperix-inspect). Off by
 * default; the environment variable ORBPERIX_CAPTURE=<file> starts one at initialisation
 * (ORBPERIX_CAPTURE_TEXT=1 adds the typed text). Recording never blocks a host or engine
 * thread: when the writer falls behind, records are dropped and counted in the file's
 * statistics block. orbperix_finalize and process exit stop the capture too. */

/* Also record the text a user typed (text-input and message events); without it those bytes
 * are written as zeros. */
#define ORBPERIX_CAPTURE_USER_TEXT 0x1u

typedef struct orbperix_capture_options {
    uint32_t flags;          /* ORBPERIX_CAPTURE_* bits */
    uint32_t payload_cap;    /* bytes kept of each audio, refresh and binary buffer (at most
                                1536); remote-control packets and button data are kept whole */
    uint32_t queue_records;  /* records the queue holds before it drops (0: 4096) */
} orbperix_capture_options;

/* Starts a capture into the file `path` (UTF-8; replaced if it exists). `options` may be null
 * (no typed text, 64 payload bytes, 4096 records). Returns 0; -2 without a path; -4 when a
 * capture runs already; -13 when the file cannot be written (one error line; the session
 * goes on uncaptured); -3 without memory. */
ORBPERIX_API int orbperix_capture_start(const char* path, const orbperix_capture_options* options);
/* Flushes what was queued, writes the statistics block and closes the file. Returns 0, or -4
 * when no capture runs (or the running one already ended on a write error, logged then). */
ORBPERIX_API int orbperix_capture_stop(void);

#ifdef __cplusplus
}
#endif

#endif /* ORBPERIX_ORBPERIX_C_H_ */
