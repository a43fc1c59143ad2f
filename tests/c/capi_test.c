/* The C interface driven from C (C11): whole sessions of the three provider kinds against the
 * simulated engine, listener delivery with user data, remote-control packets compared with the
 * same events posted through the C++ interface, and misuse (null, stale and other-kind handles,
 * null records, unreadable texts). Provider rules themselves (refusals, encoder limits, service
 * types) are the C++ tests' business; this program checks what the C layer adds.
 *
 * The library loads the simulated engine from this program's folder, as it loads the real one.
 * Prints one line per failed check and a closing "N passed, M failed"; exits 1 on failure. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "SinkTestApi.h"
#include "cpp_reference.h"
#include "orbperix/orbperix_c.h"
#include "perix_sim.h"
#include "perix_sim_peer.h"
#include "perix_sim_streams.h"

static int g_passed;
static int g_failed;

#define CHECK(cond)                                                            \
    do {                                                                       \
        if (cond) {                                                            \
            ++g_passed;                                                        \
        } else {                                                               \
            ++g_failed;                                                        \
            printf("FAILED %s:%d: %s\n", __FILE__, __LINE__, #cond);           \
        }                                                                      \
    } while (0)
#define CHECK_EQ(actual, expected)                                             \
    do {                                                                       \
        long long a_ = (long long)(actual);                                    \
        long long e_ = (long long)(expected);                                  \
        if (a_ == e_) {                                                        \
            ++g_passed;                                                        \
        } else {                                                               \
            ++g_failed;                                                        \
            printf("FAILED %s:%d: %s == %lld, expected %lld\n", __FILE__, __LINE__, \
                   #actual, a_, e_);                                           \
        }                                                                      \
    } while (0)

/* ---- Log lines ---- */

/* Lines written since `from` whose text contains `needle`. */
static int CountLinesSince(int from, const char* needle) {
    int count = 0;
    int total = tracekit_test_line_count();
    for (int i = from; i < total; ++i) {
        char text[1024];
        if (tracekit_test_line(i, NULL, text, (int)sizeof(text)) >= 0 && strstr(text, needle)) {
            ++count;
        }
    }
    return count;
}

/* ---- Records ---- */

static orbperix_device_info Device(const char* peer, int32_t port) {
    orbperix_device_info d;
    memset(&d, 0, sizeof(d));
    strcpy(d.local_device_id, "capi-host");
    d.local_device_id_len = (uint32_t)strlen(d.local_device_id);
    strcpy(d.peer_device_id, peer);
    d.peer_device_id_len = (uint32_t)strlen(peer);
    d.server_port = port;
    d.connect_type = 1;
    d.session_key[0] = 0x5A;
    return d;
}

static orbperix_service Service(const char* device, const char* service, uint32_t type) {
    orbperix_service s;
    s.device_id = device;
    s.device_id_len = ORBPERIX_C_NUL_TERMINATED;
    s.service_id = service;
    s.service_id_len = ORBPERIX_C_NUL_TERMINATED;
    s.service_type = type;
    return s;
}

/* One event of each kind the encoder builds, with whole coordinates (the wire truncates them):
 * the C layer copies most kinds only up to their payload member, text input whole;
 * cpp_reference.cpp posts the same records through C++. */
static const orbperix_remote_event kEvents[] = {
    {.type = ORBPERIX_REMOTE_TOUCH,
     .payload.touch = {.pointer_count = 2, .pointer_ids = {1, 2}, .x = {100.25, 300},
                       .y = {200.5, 400}}},
    {.type = ORBPERIX_REMOTE_KEY,
     .payload.key = {.action = 1, .key_value1 = 0x1234, .key_value2 = 0x00AB,
                     .key_value3 = 0x01020304}},
    {.type = ORBPERIX_REMOTE_MOUSE, .header_flags = 0x08, .header_tag = 0x5A,
     .payload.mouse = {.action = 2, .button = 1, .coords = {10.5, 20.25, 640, 480}}},
    {.type = ORBPERIX_REMOTE_WHEEL,
     .payload.wheel = {.action = 1, .buttons = 5, .wheel_value = 120, .x = 50, .y = 60}},
    {.type = ORBPERIX_REMOTE_TEXT_INPUT,
     .payload.input.u.content = {.content_length = 5, .content = "hello"}},
    {.type = ORBPERIX_REMOTE_MESSAGE,
     .payload.message = {.message_length = 6, .message_word = 0x0102, .message_data = "abcd"}},
    {.type = ORBPERIX_REMOTE_SCROLL, .payload.scroll = {.action = 1, .scroll_value = 0x0304}},
    {.type = ORBPERIX_REMOTE_VIRTUAL_KEY, .payload.virtual_key = {.action = 2, .x = 70, .y = 80}},
    {.type = ORBPERIX_REMOTE_ZOOM, .payload.zoom = {.x = 90, .y = 110, .zoom_value = 0x0203}},
};
enum { kEventCount = (int)(sizeof(kEvents) / sizeof(kEvents[0])) };

/* Where the packet's 4-byte big-endian timestamp sits: at the end, or just before the padding
 * byte when the decoder reports one. -1 when the bytes there do not hold the decoded value. */
static int TimestampAt(const perix_sim_packet* p) {
    int at = (int)p->length - (strstr(p->description, " padded]") != NULL ? 5 : 4);
    if (at < 0) {
        return -1;
    }
    uint32_t v = ((uint32_t)p->bytes[at] << 24) | ((uint32_t)p->bytes[at + 1] << 16) |
                 ((uint32_t)p->bytes[at + 2] << 8) | (uint32_t)p->bytes[at + 3];
    return v == p->timestamp_ms ? at : -1;
}

/* Equal packets apart from the timestamp (the two posts may fall in different milliseconds). */
static int SamePacket(const perix_sim_packet* a, const perix_sim_packet* b) {
    if (a->length != b->length || a->length > PERIX_SIM_PACKET_BYTES || !a->decoded ||
        !b->decoded) {
        return 0;
    }
    int ta = TimestampAt(a);
    int tb = TimestampAt(b);
    if (ta < 0 || ta != tb) {
        return 0;
    }
    for (uint32_t i = 0; i < a->length; ++i) {
        if ((int)i >= ta && (int)i < ta + 4) {
            continue;
        }
        if (a->bytes[i] != b->bytes[i]) {
            return 0;
        }
    }
    return 1;
}

/* ---- Listener record: what each callback received, per user data ---- */

typedef struct Received {
    int device_changes, service_changes, data, buttons, audio, refresh;
    char last_device[64];
    char last_service[64];
    uint32_t words[3];
    uint32_t service_type;
    uint8_t bytes[16];
    uint32_t length;
} Received;

static void KeepText(char* out, const char* text, uint32_t len) {
    if (len > 63) {
        len = 63;
    }
    memcpy(out, text, len);
    out[len] = '\0';
}

static void KeepBytes(Received* r, const uint8_t* data, uint32_t len) {
    r->length = len;
    if (data != NULL) {
        memcpy(r->bytes, data, len < sizeof(r->bytes) ? len : sizeof(r->bytes));
    }
}

static void OnDeviceChange(void* user_data, const orbperix_device_change* info) {
    Received* r = (Received*)user_data;
    ++r->device_changes;
    KeepText(r->last_device, info->device_id, info->device_id_len);
    r->words[0] = info->word0;
    r->words[1] = info->word1;
}

static void OnServiceChange(void* user_data, const orbperix_service_change* info) {
    Received* r = (Received*)user_data;
    ++r->service_changes;
    KeepText(r->last_device, info->device_id, info->device_id_len);
    KeepText(r->last_service, info->service_id, info->service_id_len);
    r->words[0] = info->word0;
    r->words[1] = info->word1;
    r->words[2] = info->word2;
}

static void OnData(void* user_data, const char* device_id, uint32_t device_id_len,
                   const orbperix_binary* data) {
    Received* r = (Received*)user_data;
    ++r->data;
    KeepText(r->last_device, device_id, device_id_len);
    r->words[0] = data->word0;
    r->words[1] = data->word1;
    KeepBytes(r, data->data, data->len);
}

static void KeepService(Received* r, const orbperix_service* s) {
    KeepText(r->last_device, s->device_id, (uint32_t)s->device_id_len);
    KeepText(r->last_service, s->service_id, (uint32_t)s->service_id_len);
    r->service_type = s->service_type;
}

static void OnButton(void* user_data, const orbperix_service* service,
                     const orbperix_button_notify* info) {
    Received* r = (Received*)user_data;
    ++r->buttons;
    KeepService(r, service);
    r->words[0] = info->word0;
    r->words[1] = info->word1;
    KeepBytes(r, info->data, info->data_len);
}

static void KeepStream(Received* r, int* counter, const orbperix_service* service,
                       const orbperix_stream_data* data) {
    ++*counter;
    KeepService(r, service);
    r->words[0] = data->a;
    r->words[1] = data->b;
    KeepBytes(r, data->data, data->data_len);
}

static void OnAudio(void* user_data, const orbperix_service* service,
                    const orbperix_stream_data* data) {
    KeepStream((Received*)user_data, &((Received*)user_data)->audio, service, data);
}

static void OnRefresh(void* user_data, const orbperix_service* service,
                      const orbperix_stream_data* data) {
    KeepStream((Received*)user_data, &((Received*)user_data)->refresh, service, data);
}

static const orbperix_listener kListener = {OnDeviceChange, OnServiceChange, OnData,
                                            OnAudio,        OnButton,        OnRefresh};

/* ---- Sessions ---- */

static void InputSession(void) {
    static const uint8_t payload[3] = {0xA1, 0xB2, 0xC3};
    Received a, b;
    memset(&a, 0, sizeof(a));
    memset(&b, 0, sizeof(b));

    CHECK_EQ(capi_ref_open(), 0); /* before ours: creating an input provider resets its kind */
    orbperix_input_handle input = orbperix_create_input_provider();
    CHECK(input != 0);
    CHECK_EQ(orbperix_input_init(input), 0);

    orbperix_device_info peerA = Device("peer-A", 5);
    orbperix_device_info peerB = Device("peer-B", 6);
    CHECK_EQ(orbperix_input_register_listener(input, &peerA, &kListener, &a), 0);
    void* handleA = perix_sim_last_handle();
    CHECK_EQ(orbperix_input_register_listener(input, &peerB, &kListener, &b), 0);
    void* handleB = perix_sim_last_handle();
    CHECK(handleA != NULL && handleB != NULL && handleA != handleB);
    /* A second registration of the same peer is refused and keeps the first listener. */
    CHECK_EQ(orbperix_input_register_listener(input, &peerA, &kListener, &b), -13);

    CHECK_EQ(orbperix_input_connect_device(input, &peerA), 0);
    perix_sim_call call;
    CHECK_EQ(perix_sim_find_call(PERIX_SIM_MAIN, 6, 0, &call), 0); /* PERIXStartService */
    CHECK(strcmp(call.text, "peer-A") == 0);

    orbperix_service button = Service("peer-A", "svc-button", 6);
    CHECK_EQ(orbperix_input_start_device_service(input, &button, NULL), 0);
    CHECK_EQ(orbperix_input_open_button(input, &button, NULL), 0);

    /* Remote-control events through C, with NUL-terminated texts and with explicit lengths over
       texts that go on past them, then the same events through C++: the same packets, written
       to the same identity. */
    perix_sim_peer_clear_packets();
    const int events = kEventCount;
    orbperix_service counted = button;
    counted.device_id = "peer-A/not-this";
    counted.device_id_len = 6;
    counted.service_id = "svc-button/nor-this";
    counted.service_id_len = 10;
    for (int i = 0; i < events; ++i) {
        CHECK_EQ(orbperix_input_post_remote_ctrl_event(input, &button, &kEvents[i]), 0);
        CHECK_EQ(orbperix_input_post_remote_ctrl_event(input, &counted, &kEvents[i]), 0);
    }
    for (int i = 0; i < events; ++i) {
        CHECK_EQ(capi_ref_post(&kEvents[i], "peer-A", "svc-button"), 0);
    }
    CHECK_EQ(perix_sim_peer_packet_count(), 3 * events);
    for (int i = 0; i < events; ++i) {
        perix_sim_packet fromC[2], fromCpp;
        CHECK_EQ(perix_sim_peer_get_packet(2 * events + i, &fromCpp), 0);
        for (int form = 0; form < 2; ++form) {
            CHECK_EQ(perix_sim_peer_get_packet(2 * i + form, &fromC[form]), 0);
            if (!SamePacket(&fromC[form], &fromCpp)) {
                printf("  event %d, form %d: C packet (%u bytes, %s) differs from C++ packet "
                       "(%u bytes, %s)\n", i, form, fromC[form].length, fromC[form].description,
                       fromCpp.length, fromCpp.description);
            }
            CHECK(SamePacket(&fromC[form], &fromCpp));
            CHECK(strcmp(fromC[form].device_id, "peer-A") == 0 &&
                  strcmp(fromC[form].service_id, "svc-button") == 0);
        }
    }

    /* Raw button write, binary data, the data and event callbacks, pass-through. */
    CHECK_EQ(orbperix_input_button_write_stream_buffer(input, &button, payload, 3), 0);
    perix_sim_packet raw;
    CHECK_EQ(perix_sim_peer_get_packet(3 * events, &raw), 0);
    CHECK(raw.length == 3 && memcmp(raw.bytes, payload, 3) == 0);
    /* A service id given by a length beyond the wrapper's stack copy reaches the engine whole
       and NUL-terminated (the simulated engine checks the NUL). */
    char longService[320];
    memset(longService, 'x', sizeof(longService));
    orbperix_service longText = Service("peer-A", longService, 6);
    longText.service_id_len = 300;
    CHECK_EQ(orbperix_input_post_remote_ctrl_event(input, &longText, &kEvents[0]), 0);
    CHECK_EQ(perix_sim_find_call(PERIX_SIM_BUTTON, 3, perix_sim_count_calls(PERIX_SIM_BUTTON, 3) - 1,
                                 &call), 0);
    CHECK_EQ(call.values[1], 300u);
    orbperix_binary binary = {1, 2, payload, 3};
    CHECK_EQ(orbperix_input_send_data(input, "peer-A", -1, &binary), 0);
    CHECK_EQ(orbperix_input_send_data_no_result(input, "peer-Axx", 6, &binary), 0);
    CHECK_EQ(orbperix_input_send_binary_data(input, "peer-A", 6, &binary), 0);
    CHECK_EQ(perix_sim_count_calls(PERIX_SIM_MAIN, 16), 3); /* PERIXSendBinaryData */
    CHECK_EQ(orbperix_input_register_data_listener(input, "peer-A", -1, 3, NULL), 0);
    CHECK_EQ(orbperix_input_unregister_data_listener(input, "peer-A", -1, 3), 0);
    CHECK_EQ(orbperix_input_register_event_callback(input, "peer-A", -1, 4, NULL), 0);
    CHECK_EQ(perix_sim_count_calls(PERIX_SIM_MAIN, 7), 2); /* PERIXRegisterCallback */
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 9, 77);
    CHECK_EQ(orbperix_input_send_by_handler(input, NULL, NULL, NULL), 77);
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 9, 0);

    /* Every input notification kind reaches the listener of its peer with its user data (one
     * at a time: each overwrites what the record kept). */
    static const uint8_t extra[2] = {9, 8};
    CHECK_EQ(perix_sim_peer_post_device_change(handleB, "peer-B", 1, 2), 0);
    perix_sim_peer_flush();
    CHECK(b.device_changes == 1 && a.device_changes == 0);
    CHECK(strcmp(b.last_device, "peer-B") == 0 && b.words[0] == 1 && b.words[1] == 2);
    CHECK_EQ(perix_sim_peer_post_service_change(handleA, "peer-A", "svc-x", 3, 4, 5), 0);
    perix_sim_peer_flush();
    CHECK(a.service_changes == 1 && strcmp(a.last_service, "svc-x") == 0);
    CHECK(a.words[0] == 3 && a.words[1] == 4 && a.words[2] == 5);
    CHECK_EQ(perix_sim_peer_post_data(handleA, 11, 12, payload, 3), 0);
    perix_sim_peer_flush();
    CHECK(a.data == 1 && strcmp(a.last_device, "peer-A") == 0);
    CHECK(a.words[0] == 11 && a.words[1] == 12 && a.length == 3 && memcmp(a.bytes, payload, 3) == 0);
    CHECK_EQ(perix_sim_peer_post_button("peer-A", "svc-button", 2, 3, extra, 2), 0);
    perix_sim_peer_flush();
    CHECK(a.buttons == 1 && strcmp(a.last_service, "svc-button") == 0 && a.service_type == 6);
    CHECK(a.words[0] == 2 && a.words[1] == 3 && a.length == 2 && memcmp(a.bytes, extra, 2) == 0);
    CHECK_EQ(a.device_changes + b.device_changes, 1);

    /* Teardown. */
    CHECK_EQ(orbperix_input_unregister_listener(input, &peerA), 0);
    CHECK_EQ(orbperix_input_close_button(input, &button, NULL, NULL), 0);
    CHECK_EQ(orbperix_input_stop_device_service(input, &button), 0);
    CHECK_EQ(orbperix_input_disconnect_device(input, &peerA), 0);
    CHECK_EQ(orbperix_input_deinit(input), 0);
    CHECK_EQ(orbperix_destroy_input_provider(input), 1);
    capi_ref_close();
}

static void SourceSession(void) {
    Received r;
    memset(&r, 0, sizeof(r));
    orbperix_source_handle source = orbperix_create_source_provider();
    CHECK(source != 0);
    CHECK_EQ(orbperix_source_init(source), 0);
    orbperix_device_info peer = Device("peer-S", 7);
    CHECK_EQ(orbperix_source_register_listener(source, &peer, &kListener, &r), 0);
    void* handle = perix_sim_last_handle();
    CHECK_EQ(orbperix_source_connect_device(source, &peer), 0);

    orbperix_service audio = Service("peer-S", "svc-audio", 0);
    orbperix_audio_param param = {1, 2, 3, 4, 5, 6, 7};
    CHECK_EQ(orbperix_source_start_device_service(source, &audio, NULL), 0);
    CHECK_EQ(orbperix_source_open_audio(source, &audio, &param), 0);
    uint8_t pcm[16];
    for (int i = 0; i < 16; ++i) {
        pcm[i] = (uint8_t)(i * 7);
    }
    CHECK_EQ(orbperix_source_audio_write_stream_buffer(source, &audio, pcm, sizeof(pcm)), 0);
    perix_sim_stream_stats stats;
    CHECK_EQ(perix_sim_stream_stats_of(PERIX_SIM_STREAM_AUDIO, &stats), 0);
    CHECK(stats.bytes == 16 && stats.checksum == perix_sim_fnv1a(PERIX_SIM_FNV1A_BASIS, pcm, 16));
    perix_sim_set_slot_result(PERIX_SIM_AUDIO, 6, 31);
    CHECK_EQ(orbperix_source_audio_pass_through(source, NULL, NULL), 31);
    perix_sim_set_slot_result(PERIX_SIM_AUDIO, 6, 0);

    orbperix_service refresh = Service("peer-S", "svc-refresh", 11);
    CHECK_EQ(orbperix_source_open_partial_refresh(source, &refresh), 0);
    CHECK_EQ(orbperix_source_partial_refresh_write_stream_buffer(source, &refresh, pcm, 8), 0);
    CHECK_EQ(perix_sim_stream_stats_of(PERIX_SIM_STREAM_REFRESH, &stats), 0);
    CHECK(stats.buffers == 1 && stats.bytes == 8);

    /* Audio and refresh deliveries, and the general notifications, reach the source listener. */
    static const uint8_t back[4] = {4, 3, 2, 1};
    CHECK_EQ(perix_sim_deliver_audio("peer-S", "svc-audio", 3, 21, 22, back, 4), 0);
    perix_sim_deliveries_flush();
    CHECK_EQ(r.audio, 1);
    CHECK(strcmp(r.last_device, "peer-S") == 0 && strcmp(r.last_service, "svc-audio") == 0);
    CHECK(r.words[0] == 21 && r.words[1] == 22);
    CHECK(r.length == 4 && memcmp(r.bytes, back, 4) == 0);
    CHECK_EQ(perix_sim_deliver_refresh("peer-S", "svc-refresh", 31, 32, back, 3), 0);
    perix_sim_deliveries_flush();
    CHECK_EQ(r.refresh, 1);
    CHECK(strcmp(r.last_service, "svc-refresh") == 0 && r.service_type == 11);
    CHECK(r.words[0] == 31 && r.words[1] == 32 && r.length == 3);
    CHECK_EQ(perix_sim_peer_post_device_change(handle, "peer-S", 41, 42), 0);
    perix_sim_peer_flush();
    CHECK_EQ(r.device_changes, 1);
    CHECK(r.words[0] == 41 && r.words[1] == 42);

    CHECK_EQ(orbperix_source_close_partial_refresh(source, &refresh), 0);
    CHECK_EQ(orbperix_source_close_audio(source, &audio), 0);
    CHECK_EQ(orbperix_source_stop_device_service(source, &audio), 0);
    CHECK_EQ(orbperix_source_disconnect_device(source, &peer), 0);
    CHECK_EQ(orbperix_source_deinit(source), 0);
    CHECK_EQ(orbperix_destroy_source_provider(source), 1);
}

static void SinkSession(void) {
    orbperix_sink_handle sink = orbperix_create_sink_provider();
    CHECK(sink != 0);
    CHECK_EQ(orbperix_sink_init(sink), 0);
    orbperix_device_info peer = Device("peer-K", 9);
    CHECK_EQ(orbperix_sink_connect_device(sink, &peer), 0);
    CHECK_EQ(orbperix_sink_create_mesh_provider(sink, &peer), 0);
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 8, 3);
    CHECK_EQ(orbperix_sink_get_connection_status(sink), 3);
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 8, 0);
    CHECK_EQ(orbperix_sink_register_engine_callback(sink, 2, NULL), 0);
    CHECK_EQ(orbperix_sink_send_by_handler(sink, NULL, NULL, NULL), 0);
    CHECK_EQ(orbperix_sink_disconnect_device(sink, &peer, NULL), 0);
    /* A null record is refused before the engine sees it: -2 and one line. */
    int mark = tracekit_test_line_count();
    int starts = perix_sim_count_calls(PERIX_SIM_MAIN, 6); /* PERIXStartService */
    CHECK_EQ(orbperix_sink_connect_device(sink, NULL), ORBPERIX_C_INVALID_ARGUMENT);
    CHECK_EQ(tracekit_test_line_count() - mark, 1);
    CHECK_EQ(CountLinesSince(mark, "(orbperix_c::orbperix_sink_connect_device)"), 1);
    CHECK_EQ(perix_sim_count_calls(PERIX_SIM_MAIN, 6), starts);
    CHECK_EQ(orbperix_sink_deinit(sink), 0);
    CHECK_EQ(orbperix_destroy_sink_provider(sink), 1);
}

/* ---- Misuse ---- */

/* `result` is ORBPERIX_C_BAD_HANDLE with exactly one error line naming `function`. */
#define CHECK_BAD_HANDLE(call, function)                                          \
    do {                                                                          \
        int mark_ = tracekit_test_line_count();                                   \
        CHECK_EQ((call), ORBPERIX_C_BAD_HANDLE);                                  \
        CHECK_EQ(CountLinesSince(mark_, "(orbperix_c::" function ")"), 1);        \
        CHECK_EQ(tracekit_test_line_count() - mark_, 1);                          \
    } while (0)

static void BadHandles(void) {
    orbperix_device_info peer = Device("peer-X", 5);
    orbperix_service service = Service("peer-X", "svc", 6);
    const orbperix_remote_event* event = &kEvents[1];

    CHECK_BAD_HANDLE(orbperix_input_init(0), "orbperix_input_init");
    CHECK_BAD_HANDLE(orbperix_input_connect_device(0x123456789ull, &peer),
                     "orbperix_input_connect_device");
    CHECK_BAD_HANDLE(orbperix_input_post_remote_ctrl_event(~0ull, &service, event),
                     "orbperix_input_post_remote_ctrl_event");
    CHECK_BAD_HANDLE(orbperix_source_open_audio(0, NULL, NULL), "orbperix_source_open_audio");
    CHECK_BAD_HANDLE(orbperix_sink_get_connection_status(0), "orbperix_sink_get_connection_status");
    CHECK_BAD_HANDLE(orbperix_destroy_input_provider(0), "orbperix_destroy_input_provider");
    CHECK_BAD_HANDLE(orbperix_destroy_cast_session(42), "orbperix_destroy_cast_session");

    /* Stale: destroyed handles stay dead, also while another of their kind lives. */
    orbperix_input_handle input = orbperix_create_input_provider();
    CHECK(input != 0);
    CHECK_EQ(orbperix_destroy_input_provider(input), 1);
    CHECK_BAD_HANDLE(orbperix_destroy_input_provider(input), "orbperix_destroy_input_provider");
    CHECK_BAD_HANDLE(orbperix_input_deinit(input), "orbperix_input_deinit");
    orbperix_input_handle again = orbperix_create_input_provider(); /* a live one of its kind */
    CHECK(again != 0 && again != input);
    CHECK_BAD_HANDLE(orbperix_input_init(input), "orbperix_input_init");
    /* A handle of another kind. */
    orbperix_sink_handle sink = orbperix_create_sink_provider();
    CHECK_BAD_HANDLE(orbperix_input_init(sink), "orbperix_input_init");
    CHECK_BAD_HANDLE(orbperix_source_init(sink), "orbperix_source_init");
    CHECK_EQ(orbperix_destroy_input_provider(again), 1);
    CHECK_EQ(orbperix_destroy_sink_provider(sink), 1);
    CHECK_BAD_HANDLE(orbperix_sink_init(sink), "orbperix_sink_init");
}

static void BadRecords(void) {
    orbperix_input_handle input = orbperix_create_input_provider();
    orbperix_source_handle source = orbperix_create_source_provider();
    CHECK(input != 0 && source != 0);
    CHECK_EQ(orbperix_input_init(input), 0);
    CHECK_EQ(orbperix_source_init(source), 0);
    orbperix_device_info peer = Device("peer-N", 5);
    orbperix_service button = Service("peer-N", "svc-n", 6);
    const orbperix_remote_event* event = &kEvents[2];

    /* Null records reach the C++ operation as null pointers (the wrapper adds no line): the
     * operation's results and lines, which its own tests hold. */
    int mark = tracekit_test_line_count();
    CHECK_EQ(orbperix_input_register_listener(input, &peer, NULL, NULL), -4);
    CHECK_EQ(orbperix_input_connect_device(input, NULL), -2);
    CHECK_EQ(orbperix_input_post_remote_ctrl_event(input, NULL, event), -2);
    CHECK_EQ(orbperix_input_post_remote_ctrl_event(input, &button, NULL), -2);
    CHECK_EQ(CountLinesSince(mark, "PostRemoteCtrlEvent the parameter service or event is null."), 2);
    orbperix_service audio = Service("peer-N", "a", 0);
    CHECK_EQ(orbperix_source_open_audio(source, &audio, NULL), -2);
    CHECK_EQ(orbperix_input_send_data(input, "peer-N", -1, NULL), 0);
    CHECK_EQ(CountLinesSince(mark, "SendBinaryData param invalid"), 1);
    CHECK_EQ(orbperix_source_unregister_data_listener(source, NULL, -1, 1), -2);
    CHECK_EQ(CountLinesSince(mark, "orbperix_c::"), 0);

    /* Texts the wrapper cannot read: its own -2 and one line. */
    mark = tracekit_test_line_count();
    CHECK_EQ(orbperix_input_register_data_listener(input, "peer-N", -2, 1, NULL), -2);
    CHECK_EQ(orbperix_input_register_event_callback(input, NULL, -1, 1, NULL), -2);
    orbperix_service broken = Service(NULL, "svc", 6);
    broken.device_id_len = 4;
    CHECK_EQ(orbperix_input_open_button(input, &broken, NULL), -2);
    CHECK_EQ(orbperix_input_post_remote_ctrl_event(input, &broken, event), -2);
    CHECK_EQ(orbperix_input_post_remote_ctrl_event(input, &broken, NULL), -2);
    broken = Service("peer-N", "svc", 6);
    broken.service_id_len = -2;
    CHECK_EQ(orbperix_input_post_remote_ctrl_event(input, &broken, event), -2);
    CHECK_EQ(CountLinesSince(mark, "(orbperix_c::"), 6);
    CHECK_EQ(CountLinesSince(mark, "invalid text argument"), 6);
    CHECK_EQ(orbperix_initialize(NULL, NULL), ORBPERIX_C_INVALID_ARGUMENT);

    /* The cast bridge's records. */
    CHECK_EQ(orbperix_set_cast_engine_local_device(NULL), ORBPERIX_C_INVALID_ARGUMENT);
    CHECK_EQ(orbperix_create_cast_session(NULL), 0);

    CHECK_EQ(orbperix_input_deinit(input), 0);
    CHECK_EQ(orbperix_source_deinit(source), 0);
    CHECK_EQ(orbperix_destroy_input_provider(input), 1);
    CHECK_EQ(orbperix_destroy_source_provider(source), 1);
}

static int g_died;
static void OnServiceDied(void* user_data) { g_died += *(const int*)user_data; }

typedef struct CastEvents {
    int count;
    int code;
    char detail[64];
} CastEvents;

static void OnCastEvent(void* user_data, int code, const char* detail, uint32_t len) {
    CastEvents* e = (CastEvents*)user_data;
    ++e->count;
    e->code = code;
    KeepText(e->detail, detail, len);
}

static void CastBridge(void) {
    static const int weight = 5;
    CHECK_EQ(orbperix_init_cast_engine(OnServiceDied, (void*)&weight), 1);
    CHECK_EQ(capi_ref_cast_service_died(), 0);
    CHECK_EQ(g_died, 5);
    orbperix_cast_local_device device = {"local-1", "Host", 2, "10.0.0.2"};
    CHECK_EQ(orbperix_set_cast_engine_local_device(&device), 0);
    orbperix_cast_session_property property = {1, 2, 1920, 1080, 60, 48000};
    /* The casting stand-in makes no session until asked to. */
    CHECK_EQ(orbperix_create_cast_session(&property), 0);

    capi_ref_cast_session(1);
    orbperix_cast_session_handle session = orbperix_create_cast_session(&property);
    CHECK(session != 0);
    CastEvents events;
    memset(&events, 0, sizeof(events));
    CHECK_EQ(orbperix_cast_session_register_listener(session, OnCastEvent, &events), 0);
    CHECK_EQ(capi_ref_cast_fire(17, "peer-gone"), 0);
    CHECK(events.count == 1 && events.code == 17 && strcmp(events.detail, "peer-gone") == 0);
    CHECK_EQ(orbperix_cast_session_add_device(session, "tv-1xx", 4), 0);
    CHECK(strcmp(capi_ref_cast_last_device(), "tv-1") == 0);
    CHECK_EQ(orbperix_cast_session_start_auth(session, "tv-2", -1), 4);
    CHECK(strcmp(capi_ref_cast_last_device(), "tv-2") == 0);
    CHECK_EQ(orbperix_cast_session_play(session, "tv-2", -1), 0);
    CHECK_EQ(orbperix_cast_session_remove_device(session, "tv-2", -1), 0);
    CHECK_EQ(orbperix_cast_session_play(session, NULL, -1), ORBPERIX_C_INVALID_ARGUMENT);
    char id[8];
    uint32_t full = 0;
    CHECK_EQ(orbperix_cast_session_get_session_id(session, id, sizeof(id), &full), 0);
    CHECK(full == 24 && strcmp(id, "session") == 0); /* cut to capacity - 1 */
    CHECK_EQ(orbperix_cast_session_get_session_id(session, NULL, 0, &full), 0);
    orbperix_cast_session_property changed = property;
    changed.protocol_type = 9;
    CHECK_EQ(orbperix_cast_session_set_property(session, &changed), 0);
    CHECK_EQ(capi_ref_cast_last_protocol(), 9);
    CHECK_EQ(orbperix_cast_session_set_property(session, NULL), ORBPERIX_C_INVALID_ARGUMENT);
    CHECK_EQ(orbperix_cast_session_unregister_listener(session), 0);
    CHECK_EQ(orbperix_cast_session_release(session), 8);
    CHECK_EQ(capi_ref_cast_calls(0), 1);
    CHECK_EQ(capi_ref_cast_calls(1), 1);
    CHECK_EQ(capi_ref_cast_calls(5), 2);
    CHECK_EQ(capi_ref_cast_calls(8), 1);
    CHECK_EQ(orbperix_destroy_cast_session(session), 1);
    CHECK_BAD_HANDLE(orbperix_cast_session_play(session, "tv-2", -1), "orbperix_cast_session_play");
    capi_ref_cast_session(0);
}

/* Every named code has a text of its own; any other code is named by its number. */
static void ResultTexts(void) {
    static const int kNamed[] = {ORBPERIX_C_OK,           ORBPERIX_C_ENCODE_FAILED,
                                 ORBPERIX_C_INVALID_ARGUMENT, ORBPERIX_C_NO_MEMORY,
                                 ORBPERIX_C_WRONG_STATE,  ORBPERIX_C_SINK_PORT_ZERO,
                                 ORBPERIX_C_SESSION_KEY_COPY, ORBPERIX_C_NOT_AVAILABLE,
                                 ORBPERIX_C_BAD_HANDLE,   ORBPERIX_C_LISTENER_THREW};
    const size_t count = sizeof(kNamed) / sizeof(kNamed[0]);
    for (size_t i = 0; i < count; ++i) {
        const char* text = orbperix_result_text(kNamed[i]);
        CHECK(text != NULL && text[0] != '\0');
        CHECK(strstr(text, "engine result") == NULL);
        for (size_t j = 0; j < i; ++j) {
            CHECK(strcmp(text, orbperix_result_text(kNamed[j])) != 0);
        }
    }
    CHECK(strcmp(orbperix_result_text(ORBPERIX_C_NOT_AVAILABLE), orbperix_result_text(-13)) == 0);
    const char* seven = orbperix_result_text(7);
    const char* negative = orbperix_result_text(-77);
    CHECK(strcmp(seven, "engine result 7") == 0);
    CHECK(strcmp(negative, "engine result -77") == 0);
}

int main(void) {
    setvbuf(stdout, NULL, _IONBF, 0);
    perix_sim_reset();
    tracekit_test_clear();

    CHECK_EQ(orbperix_is_initialized(), 0);
    CHECK_EQ(orbperix_initialize(NULL, "capi-test"), 0);
    CHECK_EQ(orbperix_is_initialized(), 1);
    perix_sim_call call;
    CHECK_EQ(perix_sim_find_call(PERIX_SIM_MAIN, 0, 0, &call), 0); /* PERIXInitial */
    CHECK(strcmp(call.text, "capi-test") == 0);

    InputSession();
    perix_sim_clear_calls();
    SourceSession();
    SinkSession();
    BadHandles();
    BadRecords();
    CastBridge();
    ResultTexts();

    orbperix_finalize();
    CHECK_EQ(orbperix_is_initialized(), 0);
    perix_sim_reset();

    printf("%d passed, %d failed\n", g_passed, g_failed);
    return g_failed == 0 ? 0 : 1;
}
