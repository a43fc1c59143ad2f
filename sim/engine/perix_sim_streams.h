/* The simulated peer's stream side: what the peer received on its audio and partial-refresh
 * channels, and deliveries from the peer back to the host, made on a thread of the peer's own
 * as the real engine does.
 *
 * Every buffer the engine accepts is recorded as its length and an FNV-1a checksum, never its
 * bytes, so long runs stay small. A length with its top bit set (a negative length passed
 * through) is counted but its bytes are not read.
 *
 * Audio and partial-refresh deliveries are queued (the payload is copied) and made in order by one worker thread,
 * started on the first delivery and stopped by perix_sim_streams_reset (also run by
 * perix_sim_reset). It lives in the engine's core and is never joined at process exit. All functions are safe from any thread
 * except that reset and flush must not be called from inside a delivered callback. */
#ifndef PERIX_SIM_STREAMS_H_
#define PERIX_SIM_STREAMS_H_

#include <stddef.h>
#include <stdint.h>

#include "perix_sim.h"

#ifdef __cplusplus
extern "C" {
#endif

enum perix_sim_stream_channel { PERIX_SIM_STREAM_AUDIO = 0, PERIX_SIM_STREAM_REFRESH = 1 };

typedef struct perix_sim_stream_stats {
    uint32_t opens;           /* accepted open calls */
    uint32_t closes;          /* accepted close calls */
    uint32_t openServices;    /* services open now (device id + service id) */
    uint64_t buffers;         /* accepted buffers */
    uint64_t bytes;           /* their total length (readable ones) */
    uint64_t checksum;        /* FNV-1a 64 over every readable byte, in write order */
    uint32_t lastLength;      /* length of the last buffer as the engine saw it */
    uint64_t unreadable;      /* buffers whose length had the top bit set */
    uint64_t toClosedService; /* buffers written to a service that was not open */
} perix_sim_stream_stats;

/* The FNV-1a 64 offset basis; fold buffers with perix_sim_fnv1a to predict `checksum`. */
#define PERIX_SIM_FNV1A_BASIS 0xcbf29ce484222325ull
PERIX_SIM_API uint64_t perix_sim_fnv1a(uint64_t hash, const void* data, size_t length);

/* What a channel received so far; -1 for an unknown channel. */
PERIX_SIM_API int perix_sim_stream_stats_of(int channel, perix_sim_stream_stats* out);

/* When on, the audio and refresh write slots return 0 at once and record nothing, so that a
 * benchmark measures the library's own cost per buffer. */
PERIX_SIM_API void perix_sim_streams_set_bare_write(int on);

/* Kinds of delivery (device, service and data events: perix_sim_peer_post_*). */
enum perix_sim_delivery_kind { PERIX_SIM_DELIVER_AUDIO = 0, PERIX_SIM_DELIVER_REFRESH = 1 };

typedef struct perix_sim_delivery_stats {
    uint64_t queued;     /* deliveries accepted into the queue */
    uint64_t made;       /* callbacks invoked (or attempted) by the worker */
    uint64_t resultZero; /* of those, results 0 */
    uint64_t notRegistered; /* no callback registered (the fire function's -1) */
    int64_t lastResult;
} perix_sim_delivery_stats;

/* Queue an audio or partial-refresh delivery: the service identity and the payload are
 * copied; `data` may be null (then `length` is passed as given with a null pointer).
 * 0 when queued, -1 without memory. */
PERIX_SIM_API int perix_sim_deliver_audio(const char* deviceId, const char* serviceId,
                                          uint32_t engineType, uint32_t a, uint32_t b,
                                          const uint8_t* data, uint32_t length);
PERIX_SIM_API int perix_sim_deliver_refresh(const char* deviceId, const char* serviceId,
                                            uint32_t a, uint32_t b, const uint8_t* data,
                                            uint32_t length);

/* The same deliveries with malformed fields, each as described at perix_sim_raw_field. */
PERIX_SIM_API int perix_sim_deliver_audio_raw(perix_sim_raw_field deviceId,
                                              perix_sim_raw_field serviceId, uint32_t engineType,
                                              uint32_t a, uint32_t b, perix_sim_raw_field data);
PERIX_SIM_API int perix_sim_deliver_refresh_raw(perix_sim_raw_field deviceId,
                                                perix_sim_raw_field serviceId, uint32_t a,
                                                uint32_t b, perix_sim_raw_field data);

/* Blocks until every queued delivery has been made. */
PERIX_SIM_API void perix_sim_deliveries_flush(void);
PERIX_SIM_API int perix_sim_delivery_stats_of(int kind, perix_sim_delivery_stats* out);

/* Stops the worker (pending deliveries are dropped) and forgets all stream records. */
PERIX_SIM_API void perix_sim_streams_reset(void);

#ifdef __cplusplus
}
#endif

#endif /* PERIX_SIM_STREAMS_H_ */
