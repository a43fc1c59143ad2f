/* The simulated peer behind the simulated engine's button channel, and the engine's own
 * delivery thread.
 *
 * Peer: after a successful ButtonOpen it can report the channel open by sending the button
 * notification (word0 1, word1 0), as a real peer does (off by default: perix_sim_set_auto_open).
 * Every packet written to the button channel is kept (raw bytes and the packet decoder's
 * reading of it); heartbeat packets (11 bytes: ten zeros and 0xFF) are counted apart from input
 * packets.
 *
 * Delivery thread: device, service, data and button notifications posted here are copied,
 * queued and delivered by one worker thread of the engine, as the real engine calls back from
 * its own threads. perix_sim_peer_flush waits until the queue is empty. The worker lives in the
 * engine's core, so it outlives the library's unload of the engine module; it stops on
 * perix_sim_reset and is never joined at process exit (that hangs under wine).
 *
 * All functions are safe to call from any thread, except perix_sim_peer_flush and
 * perix_sim_reset from inside a delivered callback (they would wait for themselves). */
#ifndef PERIX_SIM_PEER_H_
#define PERIX_SIM_PEER_H_

#include <stdint.h>

#include "perix_sim.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Bytes of each written packet kept in a record (the library never writes more than 512). */
#define PERIX_SIM_PACKET_BYTES 520

typedef struct perix_sim_packet {
    int heartbeat;          /* 1: the heartbeat packet */
    int decoded;            /* 1: the packet decoder accepted it (input packets only) */
    uint32_t length;        /* the written length */
    uint8_t bytes[PERIX_SIM_PACKET_BYTES]; /* the first bytes written (up to the length) */
    char device_id[260];    /* the channel identity it was written to */
    char service_id[260];
    uint32_t type;          /* decoded event type and action (when decoded) */
    uint32_t action;
    uint32_t timestamp_ms;  /* decoded timestamp (when decoded) */
    char description[512];  /* the decoder's description, or its reason for refusing */
} perix_sim_packet;

/* After each successful ButtonOpen, queue the "opened" notification (1, 0) for that channel. */
PERIX_SIM_API void perix_sim_set_auto_open(int on);

/* When on, ButtonWriteStreamBuffer returns 0 at once and records nothing (benchmarks). */
PERIX_SIM_API void perix_sim_peer_set_bare_write(int on);

/* Input packets (everything but heartbeats) in write order. */
PERIX_SIM_API int perix_sim_peer_packet_count(void);
PERIX_SIM_API int perix_sim_peer_get_packet(int index, perix_sim_packet* out);
/* Heartbeat packets written so far. */
PERIX_SIM_API int perix_sim_peer_heartbeat_count(void);
/* Waits up to timeout_ms for the heartbeat count to reach `count`; returns the count then. */
PERIX_SIM_API int perix_sim_peer_wait_heartbeats(int count, int timeout_ms);
/* Forgets the packets and the heartbeat count. */
PERIX_SIM_API void perix_sim_peer_clear_packets(void);

/* Called on the writing thread after each recorded button write (heartbeat: 1 for the
 * heartbeat packet). Null removes it. */
typedef void (*perix_sim_write_hook)(void* context, int heartbeat);
PERIX_SIM_API void perix_sim_peer_set_write_hook(perix_sim_write_hook hook, void* context);

/* Queue a notification for the delivery thread; the texts and bytes are copied. Each returns 0,
 * or -1 when it could not be queued. The delivery uses perix_sim_fire_*: callbacks registered
 * at delivery time receive it. */
PERIX_SIM_API int perix_sim_peer_post_device_change(void* handle, const char* deviceId,
                                                    uint32_t word0, uint32_t word1);
PERIX_SIM_API int perix_sim_peer_post_service_change(void* handle, const char* deviceId,
                                                     const char* serviceId, uint32_t word0,
                                                     uint32_t word1, uint32_t word2);
PERIX_SIM_API int perix_sim_peer_post_data(void* handle, uint32_t word0, uint32_t word1,
                                           const uint8_t* data, uint32_t len);
PERIX_SIM_API int perix_sim_peer_post_button(const char* deviceId, const char* serviceId,
                                             uint32_t word0, uint32_t word1,
                                             const uint8_t* data, uint32_t len);
/* The same notifications with malformed fields, each field as described at perix_sim_raw_field
 * (null texts or data with non-zero lengths, lengths far beyond the bytes). */
PERIX_SIM_API int perix_sim_peer_post_device_change_raw(void* handle, perix_sim_raw_field deviceId,
                                                        uint32_t word0, uint32_t word1);
PERIX_SIM_API int perix_sim_peer_post_service_change_raw(void* handle,
                                                         perix_sim_raw_field deviceId,
                                                         perix_sim_raw_field serviceId,
                                                         uint32_t word0, uint32_t word1,
                                                         uint32_t word2);
PERIX_SIM_API int perix_sim_peer_post_data_raw(void* handle, uint32_t word0, uint32_t word1,
                                               perix_sim_raw_field data);
PERIX_SIM_API int perix_sim_peer_post_button_raw(perix_sim_raw_field deviceId,
                                                 perix_sim_raw_field serviceId, uint32_t word0,
                                                 uint32_t word1, perix_sim_raw_field data);
/* Waits until every queued notification has been delivered. */
PERIX_SIM_API void perix_sim_peer_flush(void);
/* Notifications delivered so far, and how many of them reached a registered callback. */
PERIX_SIM_API int perix_sim_peer_delivered(void);
PERIX_SIM_API int perix_sim_peer_delivered_to_callback(void);
/* Stops the delivery thread (dropping what is queued) and forgets the peer's state; also done
 * by perix_sim_reset. */
PERIX_SIM_API void perix_sim_peer_reset(void);

#ifdef __cplusplus
}
#endif

#endif /* PERIX_SIM_PEER_H_ */
