// The source provider's life against the simulated engine and peer: registration with its
// three engine registrations, connection, both channels, notifications, teardown.
#include <cstring>
#include <string>
#include <vector>

#include "provider/source_provider.h"
#include "source_test_helpers.h"

namespace {

using namespace source_test;

using SourceLife = SourceTest;

TEST_F(SourceLife, APeerFromRegistrationToDeInitTwice) {
    PERIXInfo info = MakeInfo("peer-a");
    ProviderListener host = StreamListener();
    ASSERT_EQ(0, source->Init());
    ASSERT_EQ(0, source->RegisterPERIXListener(&info, &host));
    ASSERT_EQ(0, source->ConnectDevice(&info));
    void* handle = perix_sim_last_handle();

    ServiceInfo audio{"peer-a", "audio-1", 2};
    AudioParam param{48000, 2, 16, 0, 0, 0, 960};
    ASSERT_EQ(0, source->OpenAudio(&audio, &param));
    uint8_t pcm[64];
    for (size_t i = 0; i < sizeof(pcm); ++i) {
        pcm[i] = static_cast<uint8_t>(i * 7);
    }
    source->AudioWriteStreamBuffer(&audio, pcm, sizeof(pcm));
    source->AudioWriteStreamBuffer(&audio, pcm, 32);
    ASSERT_EQ(0, source->CloseAudio(&audio));

    ServiceInfo refresh{"peer-a", "refresh-1", 11};
    ASSERT_EQ(0, source->OpenPartialRefresh(&refresh));
    uint8_t frame[100];
    std::memset(frame, 0x5A, sizeof(frame));
    ASSERT_EQ(0, source->PartialRefreshWriteStreamBuffer(&refresh, frame, sizeof(frame)));
    ASSERT_EQ(0, source->ClosePartialRefresh(&refresh));

    ASSERT_EQ(0, source->DisconnectDevice(&info));
    source->DeInit();
    source->DeInit();

    EXPECT_EQ((std::vector<std::string>{
                  "main.PERIXCreateServiceHandle", "main.PERIXRegisterListener",
                  "audio.RegisterCallback", "refresh.RegisterCallback", "main.PERIXStartService",
                  "audio.AudioOpen", "audio.AudioWriteStreamBuffer",
                  "audio.AudioWriteStreamBuffer", "audio.AudioClose",
                  "refresh.PartialRefreshOpen", "refresh.PartialRefreshWriteStreamBuffer",
                  "refresh.PartialRefreshClose", "main.PERIXReleaseServiceHandle"}),
              EngineCallNames());
    EXPECT_EQ(reinterpret_cast<uintptr_t>(handle),
              EngineCalls(PERIX_SIM_MAIN, 5).at(0).args[0]);
    EXPECT_TRUE(TraceLines().empty()) << "a clean life logs nothing";

    // What the peer received, per channel.
    perix_sim_stream_stats a{};
    ASSERT_EQ(0, perix_sim_stream_stats_of(PERIX_SIM_STREAM_AUDIO, &a));
    EXPECT_EQ(1u, a.opens);
    EXPECT_EQ(1u, a.closes);
    EXPECT_EQ(0u, a.openServices);
    EXPECT_EQ(2u, a.buffers);
    EXPECT_EQ(96u, a.bytes);
    EXPECT_EQ(perix_sim_fnv1a(perix_sim_fnv1a(PERIX_SIM_FNV1A_BASIS, pcm, 64), pcm, 32),
              a.checksum);
    EXPECT_EQ(0u, a.toClosedService);
    perix_sim_stream_stats r{};
    ASSERT_EQ(0, perix_sim_stream_stats_of(PERIX_SIM_STREAM_REFRESH, &r));
    EXPECT_EQ(1u, r.buffers);
    EXPECT_EQ(perix_sim_fnv1a(PERIX_SIM_FNV1A_BASIS, frame, sizeof(frame)), r.checksum);
}

TEST_F(SourceLife, RecordsHandedToTheEngineCarryTheServiceAndTheFixedValues) {
    PERIXInfo info = MakeInfo("peer-b");
    ConnectPeer(info);
    ServiceInfo audio{"peer-b", "mic", 10};
    AudioParam param{1, 2, 3, 4, 5, 6, 7};
    ASSERT_EQ(0, source->OpenAudio(&audio, &param));
    uint8_t pcm[8] = {};
    source->AudioWriteStreamBuffer(&audio, pcm, sizeof(pcm));
    const perix_sim_call open = EngineCalls(PERIX_SIM_AUDIO, 2).at(0);
    EXPECT_STREQ("peer-b", open.text);
    EXPECT_STREQ("mic", open.text2);
    EXPECT_EQ(2u, open.values[2]) << "host type 10 goes out as engine type 2";
    EXPECT_EQ(1u, open.values[3]);
    EXPECT_EQ(7u, open.values[4]);
    EXPECT_NE(reinterpret_cast<uintptr_t>(&param), open.args[1]) << "the parameters are a copy";
    const perix_sim_call write = EngineCalls(PERIX_SIM_AUDIO, 5).at(0);
    EXPECT_EQ(3u, write.values[2]) << "stream buffers always go as engine type 3";
    EXPECT_EQ(8u, write.values[3]);
    EXPECT_EQ(3u, write.values[4]);
    EXPECT_EQ(1u, write.values[5]);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(pcm), write.args[2]) << "the caller's buffer, no copy";

    ServiceInfo refresh{"peer-b", "screen", 11};
    ASSERT_EQ(0, source->OpenPartialRefresh(&refresh));
    ASSERT_EQ(0, source->PartialRefreshWriteStreamBuffer(&refresh, pcm, 4));
    const perix_sim_call ropen = EngineCalls(PERIX_SIM_REFRESH, 1).at(0);
    EXPECT_STREQ("screen", ropen.text2);
    EXPECT_EQ(0u, ropen.values[2]) << "refresh calls leave the engine type 0";
    const perix_sim_call rwrite = EngineCalls(PERIX_SIM_REFRESH, 3).at(0);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(pcm), rwrite.args[2]);
    EXPECT_EQ(4u, rwrite.values[3]);
}

TEST_F(SourceLife, EachOfTheThreeRegistrationsFailingIsReportedAndStopsTheRest) {
    struct Case {
        int table, slot;
        int64_t result;
        std::vector<std::string> calls;
        std::string line;
    };
    const Case cases[] = {
        {PERIX_SIM_MAIN, 14, 5,
         {"main.PERIXCreateServiceHandle", "main.PERIXRegisterListener"},
         Line("RegisterPERIXListener failed: 5", "RegisterPERIXListener")},
        {PERIX_SIM_AUDIO, 0, 6,
         {"main.PERIXCreateServiceHandle", "main.PERIXRegisterListener", "audio.RegisterCallback"},
         Line("Register audioHandler RegisterCallback failed: 6", "RegisterPERIXListener")},
        {PERIX_SIM_REFRESH, 0, -7,
         {"main.PERIXCreateServiceHandle", "main.PERIXRegisterListener", "audio.RegisterCallback",
          "refresh.RegisterCallback"},
         Line("Register partialRefreshHandler RegisterCallback failed: -7",
              "RegisterPERIXListener")},
    };
    ASSERT_EQ(0, source->Init());
    int n = 0;
    for (const Case& c : cases) {
        perix_sim_reset();
        perix_sim_set_slot_result(c.table, c.slot, c.result);
        ClearLogs();
        PERIXInfo info = MakeInfo("peer-fail-" + std::to_string(n++));
        ProviderListener host = StreamListener();
        EXPECT_EQ(c.result, source->RegisterPERIXListener(&info, &host));
        EXPECT_EQ(c.calls, EngineCallNames());
        EXPECT_EQ((std::vector<LogLine>{LogLine{4, c.line}}), TraceLines());
        // Nothing is rolled back: the session stays and a second registration is refused.
        perix_sim_set_slot_result(c.table, c.slot, 0);
        EXPECT_EQ(-13, source->RegisterPERIXListener(&info, &host));
        EXPECT_EQ(0, source->ConnectDevice(&info)) << "the session is usable";
    }
}

TEST_F(SourceLife, RegistrationNeedsInitAndAListenerAndOneSessionPerDevice) {
    PERIXInfo info = MakeInfo("peer-c");
    ProviderListener host = StreamListener();
    EXPECT_EQ(-4, source->RegisterPERIXListener(&info, &host));
    ASSERT_EQ(0, source->Init());
    EXPECT_EQ(-4, source->RegisterPERIXListener(&info, nullptr));
    EXPECT_TRUE(EngineCallNames().empty()) << "no session, no handle";
    EXPECT_EQ(2, CountTraceLines(Line("Please initialize SourceProvider first",
                                      "RegisterPERIXListener")));
    ASSERT_EQ(0, source->RegisterPERIXListener(&info, &host));
    ClearLogs();
    EXPECT_EQ(-13, source->RegisterPERIXListener(&info, &host));
    EXPECT_EQ((std::vector<LogLine>{
                  {4, Line("device already created serviceHandler.", "CreateServiceHandler")},
                  {4, Line("CreateServiceHandler fail", "RegisterPERIXListener")}}),
              TraceLines());
}

TEST_F(SourceLife, SharedOperationsLogUnderTheSourceScope) {
    PERIXInfo info = MakeInfo("peer-d");
    EXPECT_EQ(-4, source->ConnectDevice(&info));
    EXPECT_EQ(-4, source->DisconnectDevice(&info));
    EXPECT_EQ(-2, source->DisconnectDevice(nullptr));
    const std::string id = "peer-d";
    EXPECT_EQ(-4, source->RegisterDataListener(&id, 1, nullptr));
    BinaryData data{1, 2, nullptr, 0};
    EXPECT_EQ(0, source->SendDataNoResult(&id, &data)) << "0 even when nothing was sent";
    EXPECT_EQ((std::vector<LogLine>{
                  {4, Line("connInfo is null, Please RegisterPERIXListener first", "ConnectDevice")},
                  {4, Line("DisconnectDevice, device not connected.", "DisconnectDevice")},
                  {4, Line("Invalid para: deviceInfo Invalid", "DisconnectDevice")},
                  {4, Line("serviceHandler is null, please ConnectDevice first.",
                           "RegisterDataListener")},
                  {4, Line("SendBinaryData param invalid", "SendBinaryData")}}),
              TraceLines());
    EXPECT_EQ(0, source->SendByHandler(nullptr, &info, nullptr));
    EXPECT_EQ(0u, EngineCalls(PERIX_SIM_MAIN, 9).at(0).args[0]) << "no handle yet: null";
}

TEST_F(SourceLife, BinaryDataGoesToThePeersHandleAsACopy) {
    PERIXInfo info = MakeInfo("peer-e");
    ConnectPeer(info);
    void* handle = perix_sim_last_handle();
    uint8_t bytes[] = {'h', 'i', '!'};
    BinaryData data{4, 5, bytes, sizeof(bytes)};
    const std::string id = "peer-e";
    EXPECT_EQ(0, source->SendData(&id, &data));
    const perix_sim_call sent = EngineCalls(PERIX_SIM_MAIN, 16).at(0);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(handle), sent.args[0]);
    EXPECT_STREQ("hi!", sent.text);
    EXPECT_NE(reinterpret_cast<uintptr_t>(bytes), sent.args[2]);
    EXPECT_EQ(0, source->SendByHandler(nullptr, nullptr, nullptr));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(handle), EngineCalls(PERIX_SIM_MAIN, 9).at(0).args[0]);
}

TEST_F(SourceLife, DestroyingAnInitialisedProviderTearsDownEverySourceSession) {
    PERIXInfo one = MakeInfo("peer-1");
    PERIXInfo two = MakeInfo("peer-2");
    ProviderListener host = StreamListener();
    ASSERT_EQ(0, source->Init());
    ASSERT_EQ(0, source->RegisterPERIXListener(&one, &host));
    ASSERT_EQ(0, source->RegisterPERIXListener(&two, &host));
    auto second = manager().CreateSourceProvider();  // clears the class-wide flag
    ASSERT_EQ(0, second->Init());
    perix_sim_clear_calls();
    ASSERT_TRUE(manager().DestorySourceProvider(source));
    source.reset();  // the last reference: the destructor runs here
    EXPECT_EQ(2, perix_sim_count_calls(PERIX_SIM_MAIN, 5)) << "sessions are class-wide";
    EXPECT_EQ(-4, second->ConnectDevice(&one));
    second->DeInit();
    EXPECT_EQ(2, perix_sim_count_calls(PERIX_SIM_MAIN, 5)) << "the flag is already clear";
    manager().DestorySourceProvider(second);
}

TEST_F(SourceLife, NotificationsInBothChannelsReachTheListenerAsPrivateCopies) {
    PERIXInfo info = MakeInfo("peer-n");
    ConnectPeer(info);
    std::vector<uint8_t> sound(300);
    for (size_t i = 0; i < sound.size(); ++i) {
        sound[i] = static_cast<uint8_t>(i);
    }
    const std::string device = "peer-n";
    const std::string service = "speaker";
    const PerixServiceId id = EngineId(device, service.c_str(), 1);
    PerixStreamNotify notify{11, 12, 99, static_cast<uint32_t>(sound.size()), sound.data()};
    EXPECT_EQ(0, perix_sim_fire_audio(&id, &notify));
    const PerixServiceId rid = EngineId(device, "screen", 4);
    EXPECT_EQ(0, perix_sim_fire_refresh(&rid, &notify));

    const std::vector<Delivery> audio = streams().Audio();
    ASSERT_EQ(1u, audio.size());
    EXPECT_EQ("peer-n", audio[0].deviceId);
    EXPECT_EQ("speaker", audio[0].serviceId);
    EXPECT_EQ(2u, audio[0].serviceType) << "engine type 1 comes in converted, as 2";
    EXPECT_EQ(11u, audio[0].a);
    EXPECT_EQ(12u, audio[0].b);
    EXPECT_EQ(sound.size(), audio[0].dataLen);
    EXPECT_EQ(sound, audio[0].bytes);
    EXPECT_NE(sound.data(), audio[0].pointer) << "never the engine's buffer";
    const std::vector<Delivery> refresh = streams().Refresh();
    ASSERT_EQ(1u, refresh.size());
    EXPECT_EQ(11u, refresh[0].serviceType) << "refresh deliveries are always type 11";
    EXPECT_EQ(0u, refresh[0].reserved);
    EXPECT_EQ(sound.size(), refresh[0].dataLen);
    EXPECT_EQ(sound, refresh[0].bytes);
    EXPECT_NE(sound.data(), refresh[0].pointer);
    EXPECT_TRUE(TraceLines().empty());
}

TEST_F(SourceLife, ThePeerDeliversFromItsOwnThread) {
    PERIXInfo info = MakeInfo("peer-t");
    ConnectPeer(info);
    const uint8_t tone[4] = {1, 2, 3, 4};
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(0, perix_sim_deliver_audio("peer-t", "spk", 3, static_cast<uint32_t>(i), 0,
                                             tone, sizeof(tone)));
        ASSERT_EQ(0, perix_sim_deliver_refresh("peer-t", "scr", static_cast<uint32_t>(i), 0,
                                               tone, 2));
    }
    ASSERT_EQ(0, perix_sim_deliver_audio("nobody", "spk", 3, 0, 0, tone, 4));
    perix_sim_deliveries_flush();
    const std::vector<Delivery> audio = streams().Audio();
    ASSERT_EQ(20u, audio.size());
    for (size_t i = 0; i < audio.size(); ++i) {
        EXPECT_EQ(i, audio[i].a) << "in order";
    }
    EXPECT_EQ(20u, streams().Refresh().size());
    perix_sim_delivery_stats stats{};
    ASSERT_EQ(0, perix_sim_delivery_stats_of(PERIX_SIM_DELIVER_AUDIO, &stats));
    EXPECT_EQ(21u, stats.made);
    EXPECT_EQ(20u, stats.resultZero);
    EXPECT_EQ(-13, stats.lastResult) << "an unknown device has no listener";
}

using SourceSessions = EngineTest;

TEST_F(SourceSessions, InputAndSourceProvidersKeepSeparateSessions) {
    InitializeManager();
    auto input = manager().CreateInputProvider();
    auto source = manager().CreateSourceProvider();
    PERIXInfo info = MakeInfo("same-peer");
    ProviderListener host = StreamListener();
    ASSERT_EQ(0, input->Init());
    ASSERT_EQ(0, source->Init());
    ASSERT_EQ(0, input->RegisterPERIXListener(&info, &host));
    ASSERT_EQ(0, source->RegisterPERIXListener(&info, &host)) << "not refused: other kind";
    EXPECT_EQ(2, perix_sim_count_calls(PERIX_SIM_MAIN, 4));
    ASSERT_EQ(0, source->ConnectDevice(&info));
    EXPECT_EQ(0, input->ConnectDevice(&info)) << "the input session is still unconnected";
    ASSERT_EQ(0, source->DisconnectDevice(&info));
    EXPECT_EQ(-4, source->DisconnectDevice(&info));
    EXPECT_EQ(-4, input->ConnectDevice(&info)) << "input session still there, connected";
    source->DeInit();
    EXPECT_EQ(0, input->DisconnectDevice(&info)) << "source teardown left the input session";
    input->DeInit();
    manager().DestoryInputProvider(input);
    manager().DestorySourceProvider(source);
}

}  // namespace
