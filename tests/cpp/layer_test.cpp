// The header-only C++ layer (orbperix/orbperix.hpp) driven as a host built with another compiler
// drives it: this program includes no C++ header of the library and calls no C++ symbol of it
// (the test script checks its import table). Whole sessions of each provider kind and the cast
// bridge against the simulated engine, listeners as lambdas that capture state, and bad input:
// empty and moved-from owners, a listener that throws, views longer than the C limits.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "SinkTestApi.h"
#include "cpp_reference.h"
#include "orbperix/orbperix.hpp"
#include "perix_sim.h"
#include "perix_sim_peer.h"
#include "perix_sim_streams.h"

namespace {

using orbperix::Code;

// Log lines written since construction that contain `needle`.
class Lines {
public:
    Lines() : mark_(tracekit_test_line_count()) {}
    int Count(const char* needle) const {
        int count = 0;
        for (int i = mark_; i < tracekit_test_line_count(); ++i) {
            char text[1024];
            if (tracekit_test_line(i, nullptr, text, static_cast<int>(sizeof(text))) >= 0 &&
                std::strstr(text, needle) != nullptr) {
                ++count;
            }
        }
        return count;
    }
    int Total() const { return tracekit_test_line_count() - mark_; }

private:
    int mark_;
};

orbperix::DeviceInfo Device(const char* peer, int32_t port) {
    orbperix::DeviceInfo d{};
    std::strcpy(d.local_device_id, "layer-host");
    d.local_device_id_len = static_cast<uint32_t>(std::strlen(d.local_device_id));
    std::strcpy(d.peer_device_id, peer);
    d.peer_device_id_len = static_cast<uint32_t>(std::strlen(peer));
    d.server_port = port;
    d.connect_type = 1;
    return d;
}

// Every test runs with the engine initialised through the layer's Manager.
class Layer : public ::testing::Test {
protected:
    void SetUp() override {
        perix_sim_reset();
        ASSERT_EQ(manager_.Initialize("layer-test").value(), 0);
        ASSERT_TRUE(orbperix::Manager::IsInitialized());
    }
    void TearDown() override {
        manager_.Finalize();
        EXPECT_FALSE(orbperix::Manager::IsInitialized());
        perix_sim_reset();
    }
    orbperix::Manager manager_;
};

// What the listener lambdas saw, copied out of the views.
struct Seen {
    int device_changes = 0;
    int service_changes = 0;
    int data = 0;
    int buttons = 0;
    int audio = 0;
    int refresh = 0;
    std::string device;
    std::string service;
    uint32_t service_type = 0;
    std::vector<uint32_t> words;
    std::vector<uint8_t> bytes;
};

orbperix::Listener Recording(Seen& seen) {
    orbperix::Listener l;
    l.on_device_change = [&seen](const orbperix::DeviceChange& c) {
        ++seen.device_changes;
        seen.device = std::string(c.device_id);
        seen.words = {c.word0, c.word1};
    };
    l.on_service_change = [&seen](const orbperix::ServiceChange& c) {
        ++seen.service_changes;
        seen.service = std::string(c.service_id);
        seen.words = {c.word0, c.word1, c.word2};
    };
    l.on_data = [&seen](std::string_view device, const orbperix::Binary& b) {
        ++seen.data;
        seen.device = std::string(device);
        seen.words = {b.word0, b.word1};
        seen.bytes.assign(b.data.begin(), b.data.end());
    };
    l.on_button = [&seen](const orbperix::Service& s, const orbperix::Binary& b) {
        ++seen.buttons;
        seen.device = std::string(s.device_id);
        seen.service = std::string(s.service_id);
        seen.service_type = s.type;
        seen.words = {b.word0, b.word1};
        seen.bytes.assign(b.data.begin(), b.data.end());
    };
    auto stream = [&seen](int* counter) {
        return [&seen, counter](const orbperix::Service& s, const orbperix::StreamData& d) {
            ++*counter;
            seen.device = std::string(s.device_id);
            seen.service = std::string(s.service_id);
            seen.service_type = s.type;
            seen.words = {d.a, d.b};
            seen.bytes.assign(d.data.begin(), d.data.end());
        };
    };
    l.on_audio = stream(&seen.audio);
    l.on_partial_refresh = stream(&seen.refresh);
    return l;
}

// A provider of kind P, initialised, with `seen`'s listener registered for `peer` and connected.
template <typename P>
P Connected(const orbperix::DeviceInfo& peer, Seen& seen) {
    P provider = P::Create();
    EXPECT_TRUE(provider);
    EXPECT_EQ(provider.Init().value(), 0);
    EXPECT_EQ(provider.RegisterListener(peer, Recording(seen)).value(), 0);
    EXPECT_EQ(provider.ConnectDevice(peer).value(), 0);
    return provider;
}

// Initialises `input` and registers only `onDeviceChange` for `peer`; returns the session's
// handle.
void* WithDeviceListener(orbperix::InputProvider& input, const char* peer,
                         std::function<void(const orbperix::DeviceChange&)> onDeviceChange) {
    EXPECT_EQ(input.Init().value(), 0);
    orbperix::Listener listener;
    listener.on_device_change = std::move(onDeviceChange);
    EXPECT_EQ(input.RegisterListener(Device(peer, 5), std::move(listener)).value(), 0);
    return perix_sim_last_handle();
}

// A device change for `peer`, delivered from the engine's thread.
void PostDeviceChange(void* handle, const char* peer, uint32_t word0, uint32_t word1) {
    ASSERT_EQ(perix_sim_peer_post_device_change(handle, peer, word0, word1), 0);
    perix_sim_peer_flush();
}

TEST_F(Layer, InputSessionWithLambdaListeners) {
    Seen seen;
    const orbperix::DeviceInfo peer = Device("peer-A", 5);
    auto input = Connected<orbperix::InputProvider>(peer, seen);
    void* handle = perix_sim_last_handle();
    ASSERT_NE(handle, nullptr);

    // Views that are not NUL-terminated reach the engine cut to their length.
    const std::string ids = "peer-Asvc-buttonXX";
    const orbperix::Service button{std::string_view(ids).substr(0, 6),
                                   std::string_view(ids).substr(6, 10), 6};
    EXPECT_EQ(input.StartDeviceService(button).value(), 0);
    perix_sim_call call;
    ASSERT_EQ(perix_sim_find_call(PERIX_SIM_MAIN, 10, 0, &call), 0);  // PERIXAddVirtualService
    EXPECT_STREQ(call.text, "svc-button");
    EXPECT_EQ(input.OpenButton(button).value(), 0);

    perix_sim_peer_clear_packets();
    orbperix::RemoteEvent key{};
    key.type = ORBPERIX_REMOTE_KEY;
    key.payload.key.action = 1;
    key.payload.key.key_value1 = 0x1234;
    EXPECT_EQ(input.PostRemoteCtrlEvent(button, key).value(), 0);
    const uint8_t raw[3] = {0xA1, 0xB2, 0xC3};
    EXPECT_EQ(input.ButtonWriteStreamBuffer(button, {raw, sizeof(raw)}).value(), 0);
    ASSERT_EQ(perix_sim_peer_packet_count(), 2);
    perix_sim_packet packet;
    ASSERT_EQ(perix_sim_peer_get_packet(1, &packet), 0);
    EXPECT_EQ(packet.length, 3u);
    EXPECT_EQ(std::memcmp(packet.bytes, raw, 3), 0);
    EXPECT_STREQ(packet.service_id, "svc-button");

    EXPECT_EQ(input.SendData(std::string_view(ids).substr(0, 6), {1, 2, {raw, 3}}).value(), 0);
    EXPECT_EQ(input.SendDataNoResult("peer-A", {1, 2, {raw, 3}}).value(), 0);
    EXPECT_EQ(input.SendBinaryData("peer-A", {1, 2, {raw, 3}}).value(), 0);
    EXPECT_EQ(perix_sim_count_calls(PERIX_SIM_MAIN, 16), 3);  // PERIXSendBinaryData
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 9, 77);
    EXPECT_EQ(input.SendByHandler(nullptr, nullptr, nullptr).value(), 77);
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 9, 0);

    // Notifications reach the lambdas with their content.
    const uint8_t extra[2] = {9, 8};
    ASSERT_EQ(perix_sim_peer_post_device_change(handle, "peer-A", 7, 8), 0);
    perix_sim_peer_flush();
    EXPECT_EQ(seen.device_changes, 1);
    EXPECT_EQ(seen.device, "peer-A");
    EXPECT_EQ(seen.words, (std::vector<uint32_t>{7, 8}));
    ASSERT_EQ(perix_sim_peer_post_service_change(handle, "peer-A", "svc-x", 3, 4, 5), 0);
    perix_sim_peer_flush();
    EXPECT_EQ(seen.service_changes, 1);
    EXPECT_EQ(seen.service, "svc-x");
    EXPECT_EQ(seen.words, (std::vector<uint32_t>{3, 4, 5}));
    ASSERT_EQ(perix_sim_peer_post_data(handle, 11, 12, raw, 3), 0);
    perix_sim_peer_flush();
    EXPECT_EQ(seen.data, 1);
    EXPECT_EQ(seen.bytes, (std::vector<uint8_t>{0xA1, 0xB2, 0xC3}));
    ASSERT_EQ(perix_sim_peer_post_button("peer-A", "svc-button", 2, 3, extra, 2), 0);
    perix_sim_peer_flush();
    EXPECT_EQ(seen.buttons, 1);
    EXPECT_EQ(seen.service, "svc-button");
    EXPECT_EQ(seen.service_type, 6u);
    EXPECT_EQ(seen.bytes, (std::vector<uint8_t>{9, 8}));
    EXPECT_EQ(input.ListenerError().value(), 0);

    EXPECT_EQ(input.UnregisterListener(peer).value(), 0);
    EXPECT_EQ(input.CloseButton(button).value(), 0);
    EXPECT_EQ(input.StopDeviceService(button).value(), 0);
    EXPECT_EQ(input.DisconnectDevice(peer).value(), 0);
    EXPECT_EQ(input.DeInit().value(), 0);
}

TEST_F(Layer, SourceSessionStreamsAndDeliveries) {
    Seen seen;
    const orbperix::DeviceInfo peer = Device("peer-S", 7);
    auto source = Connected<orbperix::SourceProvider>(peer, seen);
    const orbperix::Service audio{"peer-S", "svc-audio", 0};
    EXPECT_EQ(source.StartDeviceService(audio).value(), 0);
    EXPECT_EQ(source.OpenAudio(audio, orbperix::AudioParam{1, 2, 3, 4, 5, 6, 7}).value(), 0);
    uint8_t pcm[16];
    for (int i = 0; i < 16; ++i) {
        pcm[i] = static_cast<uint8_t>(i * 7);
    }
    EXPECT_EQ(source.AudioWriteStreamBuffer(audio, {pcm, sizeof(pcm)}).value(), 0);
    perix_sim_stream_stats stats;
    ASSERT_EQ(perix_sim_stream_stats_of(PERIX_SIM_STREAM_AUDIO, &stats), 0);
    EXPECT_EQ(stats.checksum, perix_sim_fnv1a(PERIX_SIM_FNV1A_BASIS, pcm, sizeof(pcm)));

    perix_sim_set_slot_result(PERIX_SIM_AUDIO, 6, 31);
    EXPECT_EQ(source.AudioPassThrough(nullptr, nullptr).value(), 31);
    perix_sim_set_slot_result(PERIX_SIM_AUDIO, 6, 0);

    const orbperix::Service refresh{"peer-S", "svc-refresh", 11};
    EXPECT_EQ(source.OpenPartialRefresh(refresh).value(), 0);
    EXPECT_EQ(source.PartialRefreshWriteStreamBuffer(refresh, {pcm, 8}).value(), 0);

    const uint8_t back[4] = {4, 3, 2, 1};
    ASSERT_EQ(perix_sim_deliver_audio("peer-S", "svc-audio", 3, 21, 22, back, 4), 0);
    perix_sim_deliveries_flush();
    EXPECT_EQ(seen.audio, 1);
    EXPECT_EQ(seen.service, "svc-audio");
    EXPECT_EQ(seen.words, (std::vector<uint32_t>{21, 22}));
    EXPECT_EQ(seen.bytes, (std::vector<uint8_t>{4, 3, 2, 1}));
    ASSERT_EQ(perix_sim_deliver_refresh("peer-S", "svc-refresh", 31, 32, back, 3), 0);
    perix_sim_deliveries_flush();
    EXPECT_EQ(seen.refresh, 1);
    EXPECT_EQ(seen.service_type, 11u);
    EXPECT_EQ(seen.bytes.size(), 3u);

    EXPECT_EQ(source.ClosePartialRefresh(refresh).value(), 0);
    EXPECT_EQ(source.CloseAudio(audio).value(), 0);
    EXPECT_EQ(source.DisconnectDevice(peer).value(), 0);
}

TEST_F(Layer, SinkSession) {
    auto sink = orbperix::SinkProvider::Create();
    ASSERT_TRUE(sink);
    EXPECT_EQ(sink.Init().value(), 0);
    const orbperix::DeviceInfo peer = Device("peer-K", 9);
    EXPECT_EQ(sink.ConnectDevice(peer).value(), 0);
    EXPECT_EQ(sink.CreateMeshProvider(peer).value(), 0);
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 8, 3);
    EXPECT_EQ(sink.GetConnectionStatus().value(), 3);
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 8, 0);
    EXPECT_EQ(sink.RegisterEngineCallback(2, nullptr).value(), 0);
    EXPECT_EQ(sink.SendByHandler(nullptr, nullptr, nullptr).value(), 0);
    EXPECT_EQ(sink.DisconnectDevice(peer).value(), 0);
    EXPECT_EQ(sink.DeInit().value(), 0);
}

TEST_F(Layer, CastBridgeWithCapturingListeners) {
    int died = 0;
    ASSERT_TRUE(orbperix::InitCastEngine([&died] { ++died; }));
    EXPECT_EQ(capi_ref_cast_service_died(), 0);
    EXPECT_EQ(died, 1);
    EXPECT_EQ(orbperix::SetCastEngineLocalDevice({"local-1", "Host", 2, "10.0.0.2"}).value(), 0);
    const orbperix::CastSessionProperty property{1, 2, 1920, 1080, 60, 48000};
    EXPECT_FALSE(orbperix::CastSession::Create(property));  // the stand-in makes none yet
    capi_ref_cast_session(1);
    {
        auto session = orbperix::CastSession::Create(property);
        ASSERT_TRUE(session);
        std::vector<std::pair<int, std::string>> events;
        ASSERT_EQ(session.RegisterListener([&events](int code, std::string_view detail) {
                             events.emplace_back(code, std::string(detail));
                         }).value(),
                  0);
        EXPECT_EQ(capi_ref_cast_fire(17, "peer-gone"), 0);
        ASSERT_EQ(events.size(), 1u);
        EXPECT_EQ(events[0], (std::pair<int, std::string>{17, "peer-gone"}));
        EXPECT_EQ(session.AddDevice(std::string_view("tv-1xx", 4)).value(), 0);
        EXPECT_STREQ(capi_ref_cast_last_device(), "tv-1");
        EXPECT_EQ(session.StartAuth("tv-2").value(), 4);
        EXPECT_EQ(session.Play("tv-2").value(), 0);
        EXPECT_EQ(session.RemoveDevice("tv-2").value(), 0);
        char id[8];
        EXPECT_EQ(session.GetSessionId(id, sizeof(id), nullptr).value(), 0);
        EXPECT_STREQ(id, "session");
        orbperix::CastSessionProperty changed = property;
        changed.protocol_type = 9;
        EXPECT_EQ(session.SetSessionProperty(changed).value(), 0);
        EXPECT_EQ(capi_ref_cast_last_protocol(), 9u);
        EXPECT_EQ(session.Release().value(), 8);
    }
    // The owner unregistered its listener before it went.
    EXPECT_EQ(capi_ref_cast_calls(1), 1);
    EXPECT_EQ(capi_ref_cast_fire(18, "late"), -1);
    capi_ref_cast_session(0);
}

// ---- Bad input: a clear result and one log line each, nothing crashes ----

TEST_F(Layer, EmptyAndMovedFromOwnersReportBadHandle) {
    orbperix::InputProvider empty;
    EXPECT_FALSE(empty);
    {
        Lines lines;
        EXPECT_EQ(empty.Init(), orbperix::kBadHandle);
        EXPECT_EQ(lines.Total(), 1);
        EXPECT_EQ(lines.Count("orbperix_input_init"), 1);
    }
    auto source = orbperix::SourceProvider::Create();
    ASSERT_TRUE(source);
    orbperix::SourceProvider moved = std::move(source);
    EXPECT_TRUE(moved);
    EXPECT_FALSE(source);  // NOLINT(bugprone-use-after-move): the case under test
    {
        Lines lines;
        EXPECT_EQ(source.OpenAudio({"p", "s", 0}, orbperix::AudioParam{}), orbperix::kBadHandle);
        EXPECT_EQ(lines.Total(), 1);
    }
    EXPECT_EQ(moved.Init().value(), 0);
    orbperix::SinkProvider sink;
    {
        Lines lines;
        EXPECT_EQ(sink.GetConnectionStatus(), orbperix::kBadHandle);
        EXPECT_EQ(lines.Total(), 1);
    }
    orbperix::CastSession cast;
    {
        Lines lines;
        EXPECT_EQ(cast.Play("tv"), orbperix::kBadHandle);
        EXPECT_EQ(lines.Total(), 1);
    }
}

TEST_F(Layer, ViewsLongerThanTheCLimitsAreRefusedWithOneLine) {
    auto input = orbperix::InputProvider::Create();
    ASSERT_TRUE(input);
    const char small[4] = "abc";
    // A view the C interface cannot carry (its length does not fit int32_t): refused before
    // anything reads it.
    const std::string_view huge(small, size_t{0x80000000u});
    perix_sim_clear_calls();
    {
        Lines lines;
        EXPECT_EQ(input.SendData(huge, {}), orbperix::kInvalidArgument);
        EXPECT_EQ(lines.Total(), 1);
        EXPECT_EQ(lines.Count("longer than the C interface takes"), 1);
    }
    {
        Lines lines;
        EXPECT_EQ(input.StartDeviceService({"peer", huge, 6}), orbperix::kInvalidArgument);
        EXPECT_EQ(input.RegisterEventCallback(huge, 4, nullptr), orbperix::kInvalidArgument);
        EXPECT_EQ(lines.Total(), 2);
    }
    if (sizeof(size_t) > sizeof(uint32_t)) {
        Lines lines;
        const orbperix::Bytes tooMany{reinterpret_cast<const uint8_t*>(small),
                                      static_cast<size_t>(UINT32_MAX) + 1};
        EXPECT_EQ(input.ButtonWriteStreamBuffer({"peer", "svc", 6}, tooMany),
                  orbperix::kInvalidArgument);
        EXPECT_EQ(lines.Total(), 1);
    }
    EXPECT_EQ(perix_sim_call_count(), 0);  // nothing reached the engine
    orbperix::CastSession cast;
    Lines lines;
    EXPECT_EQ(cast.AddDevice(huge), orbperix::kInvalidArgument);
    EXPECT_EQ(lines.Total(), 1);
}

#if defined(__cpp_exceptions) || defined(__EXCEPTIONS) || defined(_CPPUNWIND)
TEST_F(Layer, ThrowingListenerIsCaughtAtTheBoundary) {
    auto input = orbperix::InputProvider::Create();
    ASSERT_TRUE(input);
    int calls = 0;
    void* handle = WithDeviceListener(input, "peer-T", [&calls](const orbperix::DeviceChange&) {
        ++calls;
        throw std::runtime_error("host bug");
    });
    Lines lines;
    PostDeviceChange(handle, "peer-T", 1, 2);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(lines.Count("listener threw"), 1);
    EXPECT_EQ(lines.Count("on_device_change"), 1);
    EXPECT_EQ(input.ListenerError(), orbperix::kListenerThrew);
    EXPECT_EQ(input.ListenerError().value(), 0);  // reported once
    // The library goes on delivering.
    PostDeviceChange(handle, "peer-T", 3, 4);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(input.DeInit().value(), 0);
}
#endif

TEST_F(Layer, OwnerForgetsItsListenersBeforeTheyGo) {
    int calls = 0;
    void* handle = nullptr;
    {
        auto input = orbperix::InputProvider::Create();
        ASSERT_TRUE(input);
        handle = WithDeviceListener(input, "peer-G",
                                    [&calls](const orbperix::DeviceChange&) { ++calls; });
        PostDeviceChange(handle, "peer-G", 1, 2);
        ASSERT_EQ(calls, 1);
    }
    // The owner de-initialised the kind: the engine released the session handle, and a
    // notification for the peer now reaches no freed listener.
    EXPECT_EQ(perix_sim_handle_is_released(handle), 1);
    EXPECT_EQ(perix_sim_violation_count(), 0);
    EXPECT_EQ(calls, 1);
}

// An owner destroyed from inside its own listener: the teardown neither waits for the call
// it runs in nor frees the callable under it (the box goes when the call ends).
TEST_F(Layer, OwnerDestroyedFromInsideItsOwnListener) {
    std::optional<orbperix::InputProvider> input(orbperix::InputProvider::Create());
    ASSERT_TRUE(*input);
    int calls = 0;
    void* handle = WithDeviceListener(*input, "peer-H", [&calls, &input](const orbperix::DeviceChange&) {
        ++calls;
        input.reset();
        ++calls;  // the callable is still alive here
    });
    PostDeviceChange(handle, "peer-H", 1, 2);
    EXPECT_EQ(calls, 2);
    EXPECT_FALSE(input.has_value());
    EXPECT_EQ(perix_sim_handle_is_released(handle), 1);
    EXPECT_EQ(perix_sim_violation_count(), 0);
}

TEST_F(Layer, ManagerOwnerFinalisesOnlyWhatItInitialised) {
    orbperix::Manager second;
    EXPECT_EQ(second.Initialize("again"), orbperix::kWrongState);
    EXPECT_FALSE(second);
    second = orbperix::Manager();  // finalises nothing
    EXPECT_TRUE(orbperix::Manager::IsInitialized());
    orbperix::Manager moved = std::move(manager_);
    EXPECT_TRUE(moved);
    moved.Finalize();
    EXPECT_FALSE(orbperix::Manager::IsInitialized());
}

TEST_F(Layer, EnginePathAppliesBeforeInitialising) {
    manager_.Finalize();
    // A view that is not NUL-terminated: only its length counts ("nowhere", not "nowhereXX").
    const std::string_view missing = std::string_view("nowhereXX").substr(0, 7);
    ASSERT_EQ(orbperix::Manager::SetEnginePath(missing).value(), 0);
    {
        Lines lines;
        EXPECT_EQ(manager_.Initialize("layer-test"), orbperix::kNotAvailable);
        EXPECT_EQ(lines.Count("engine location: nowhere("), 1);
    }
    ASSERT_EQ(orbperix::Manager::SetEnginePath({}).value(), 0);  // back to the default
    EXPECT_EQ(manager_.Initialize("layer-test").value(), 0);
}

}  // namespace
