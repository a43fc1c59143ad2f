// Bad input on the source provider's audio and partial-refresh channels and in the engine's
// deliveries: each gets its code and message, nothing reaches the engine that should not.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "provider/source_provider.h"
#include "provider_tables.h"
#include "source_test_helpers.h"

namespace {

using namespace source_test;

using SourceAudio = SourceTest;
using SourceRefresh = SourceTest;
using SourceNotify = SourceTest;

TEST_F(SourceAudio, MissingArgumentsAreRefusedBeforeTheEngine) {
    ServiceInfo audio{"p", "s", 2};
    AudioParam param{};
    EXPECT_EQ(-2, source->OpenAudio(nullptr, &param));
    EXPECT_EQ(-2, source->OpenAudio(&audio, nullptr));
    EXPECT_EQ(-2, source->CloseAudio(nullptr));
    uint8_t byte = 0;
    source->AudioWriteStreamBuffer(nullptr, &byte, 1);
    EXPECT_TRUE(EngineCallNames().empty());
    EXPECT_EQ((std::vector<LogLine>{{4, Line("OpenAudio param is invalid", "OpenAudio")},
                                    {4, Line("OpenAudio param is invalid", "OpenAudio")},
                                    {4, Line("CloseAudio service is null", "CloseAudio")}}),
              TraceLines())
        << "a refused stream buffer is not logged";
}

TEST_F(SourceAudio, WritesPassNullDataAndAnyLengthUncheckedAndSilently) {
    ServiceInfo audio{"p", "s", 99};
    source->AudioWriteStreamBuffer(&audio, nullptr, 0);
    source->AudioWriteStreamBuffer(&audio, nullptr, 0xFFFFFFFFu);
    perix_sim_set_slot_result(PERIX_SIM_AUDIO, 5, 42);
    uint8_t byte = 1;
    source->AudioWriteStreamBuffer(&audio, &byte, 1);
    EXPECT_EQ(3, perix_sim_count_calls(PERIX_SIM_AUDIO, 5));
    EXPECT_EQ(0xFFFFFFFFu, EngineCalls(PERIX_SIM_AUDIO, 5).at(1).values[3]);
    EXPECT_TRUE(TraceLines().empty()) << "not even an engine refusal is logged";
}

TEST_F(SourceAudio, EngineRefusalsComeBackWithTheirNumber) {
    ServiceInfo audio{"p", "s", 3};
    AudioParam param{};
    perix_sim_set_slot_result(PERIX_SIM_AUDIO, 2, 17);
    perix_sim_set_slot_result(PERIX_SIM_AUDIO, 3, -3000);
    EXPECT_EQ(17, source->OpenAudio(&audio, &param));
    EXPECT_EQ(-3000, source->CloseAudio(&audio));
    EXPECT_EQ((std::vector<LogLine>{{4, Line("OpenAudio failed with ret=17", "OpenAudio")},
                                    {4, Line("CloseAudio failed with ret=-3000", "CloseAudio")}}),
              TraceLines());
    perix_sim_set_slot_result(PERIX_SIM_AUDIO, 6, 23);
    int a = 0, b = 0;
    EXPECT_EQ(23, source->AudioPassThrough(&a, &b));
    const perix_sim_call pass = EngineCalls(PERIX_SIM_AUDIO, 6).at(0);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(&a), pass.args[0]);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(&b), pass.args[1]);
}

TEST_F(SourceAudio, UnknownServiceTypesUseTheDefaultAndStillReachTheEngine) {
    ServiceInfo audio{"p", "s", 77};
    AudioParam param{};
    EXPECT_EQ(0, source->OpenAudio(&audio, &param));
    EXPECT_EQ(0, source->CloseAudio(&audio));
    EXPECT_EQ(0u, EngineCalls(PERIX_SIM_AUDIO, 2).at(0).values[2]);
    EXPECT_EQ(0u, EngineCalls(PERIX_SIM_AUDIO, 3).at(0).values[2]);
    EXPECT_EQ(2, CountTraceLines("Invalid serviceType 77, using default value"
                                 "(OrbPerix::BaseProvider::ConvertAudioServiceType)"));
}

TEST_F(SourceRefresh, OnlyTypeElevenOpensAndCloses) {
    ServiceInfo wrong{"p", "s", 10};
    EXPECT_EQ(-2, source->OpenPartialRefresh(&wrong));
    EXPECT_EQ(-2, source->ClosePartialRefresh(&wrong));
    EXPECT_EQ(-2, source->OpenPartialRefresh(nullptr));
    EXPECT_EQ(-2, source->ClosePartialRefresh(nullptr));
    EXPECT_TRUE(EngineCallNames().empty());
    EXPECT_EQ((std::vector<LogLine>{
                  {4, Line("OpenPartialRefresh failed, type Invalid: 10", "OpenPartialRefresh")},
                  {4, Line("ClosePartialRefresh failed, type Invalid: 10", "ClosePartialRefresh")},
                  {4, Line("OpenPartialRefresh service is null", "OpenPartialRefresh")},
                  {4, Line("ClosePartialRefresh service is null", "ClosePartialRefresh")}}),
              TraceLines());
    ServiceInfo right{"p", "s", 11};
    perix_sim_set_slot_result(PERIX_SIM_REFRESH, 1, 8);
    perix_sim_set_slot_result(PERIX_SIM_REFRESH, 2, 9);
    ClearLogs();
    EXPECT_EQ(8, source->OpenPartialRefresh(&right));
    EXPECT_EQ(9, source->ClosePartialRefresh(&right));
    EXPECT_EQ((std::vector<LogLine>{
                  {4, Line("OpenPartialRefresh failed with ret=8", "OpenPartialRefresh")},
                  {4, Line("ClosePartialRefresh failed with ret=9", "ClosePartialRefresh")}}),
              TraceLines());
}

TEST_F(SourceRefresh, WritesRefuseNothingToWriteButPassNegativeLengthsAndAnyType) {
    ServiceInfo service{"p", "s", 6};
    uint8_t bytes[4] = {1, 2, 3, 4};
    EXPECT_EQ(-2, source->PartialRefreshWriteStreamBuffer(nullptr, bytes, 4));
    EXPECT_EQ(-2, source->PartialRefreshWriteStreamBuffer(&service, nullptr, 4));
    EXPECT_EQ(-2, source->PartialRefreshWriteStreamBuffer(&service, bytes, 0));
    EXPECT_EQ(3, CountTraceLines(Line("PartialRefreshWriteStreamBuffer failed: invalid parameter",
                                      "PartialRefreshWriteStreamBuffer")));
    EXPECT_TRUE(EngineCallNames().empty());
    EXPECT_EQ(0, source->PartialRefreshWriteStreamBuffer(&service, bytes, -1));
    EXPECT_EQ(0xFFFFFFFFu, EngineCalls(PERIX_SIM_REFRESH, 3).at(0).values[3]);
    perix_sim_stream_stats stats{};
    ASSERT_EQ(0, perix_sim_stream_stats_of(PERIX_SIM_STREAM_REFRESH, &stats));
    EXPECT_EQ(1u, stats.unreadable) << "the peer does not read past the buffer either";
    perix_sim_set_slot_result(PERIX_SIM_REFRESH, 3, -12);
    ClearLogs();
    EXPECT_EQ(-12, source->PartialRefreshWriteStreamBuffer(&service, bytes, 4));
    EXPECT_EQ(OneLineOf(Line("PartialRefreshWriteStreamBuffer failed with ret=-12",
                             "PartialRefreshWriteStreamBuffer")),
              TraceLines());
}

TEST_F(SourceRefresh, WriteTimeCountsFromConstructionAndOnlyForAcceptedWrites) {
    OrbPerix::SourceProvider provider(LiveEngineLoad());
    ServiceInfo service{"p", "s", 11};
    uint8_t byte = 0;
    EXPECT_EQ(0u, provider.LastWriteTimeMs());
    ASSERT_EQ(0, provider.PartialRefreshWriteStreamBuffer(&service, &byte, 1));
    const uint32_t first = provider.LastWriteTimeMs();
    EXPECT_LT(first, 1000u) << "right after construction";
    OrbPerix::platform::SleepMilliseconds(30);
    EXPECT_EQ(-2, provider.PartialRefreshWriteStreamBuffer(&service, &byte, 0));
    EXPECT_EQ(first, provider.LastWriteTimeMs()) << "a refused write records nothing";
    ASSERT_EQ(0, provider.PartialRefreshWriteStreamBuffer(&service, &byte, 1));
    EXPECT_GE(provider.LastWriteTimeMs(), first + 20);
}

// Milliseconds on the precise clock since the source kind's time base.
int64_t PreciseMsSinceTimeBase() {
    const OrbPerix::SourceClassState& state = OrbPerix::SourceState();
    return (OrbPerix::platform::PerformanceCounter() - state.clockStart.load()) * 1000 /
           state.clockFrequency.load();
}

// The stamp comes from the coarse clock and is recomputed only when that reading moves: it must
// still sit between the precise time before and after each write, short of it by no more than a
// tick (a few kernel ticks at most, well inside the 50 ms that anything compares at), and a
// time base restarted by a newer provider must show at once.
TEST_F(SourceRefresh, WriteTimeTracksThePreciseClockWithinATickAndFollowsARestartedTimeBase) {
    constexpr int64_t kTickMs = 25;
    OrbPerix::SourceProvider provider(LiveEngineLoad());
    ServiceInfo service{"p", "s", 11};
    uint8_t byte = 0;
    uint32_t previous = 0;
    for (int round = 0; round < 40; ++round) {
        const int64_t before = PreciseMsSinceTimeBase();
        for (int write = 0; write < 50; ++write) {
            ASSERT_EQ(0, provider.PartialRefreshWriteStreamBuffer(&service, &byte, 1));
        }
        const int64_t after = PreciseMsSinceTimeBase();
        const int64_t stamp = provider.LastWriteTimeMs();
        EXPECT_LE(stamp, after) << "round " << round;
        EXPECT_GE(stamp, before - kTickMs) << "round " << round;
        EXPECT_GE(stamp, previous) << "round " << round;
        previous = static_cast<uint32_t>(stamp);
        OrbPerix::platform::SleepMilliseconds(round % 4 == 0 ? 20 : 1);
    }
    ASSERT_GE(previous, 60u) << "the rounds span well over a tick";

    // A newer provider restarts the kind's time base; the next write of the older one counts
    // from there, even within the coarse clock's current tick.
    OrbPerix::SourceProvider newer(LiveEngineLoad());
    ASSERT_EQ(0, provider.PartialRefreshWriteStreamBuffer(&service, &byte, 1));
    EXPECT_LE(provider.LastWriteTimeMs(), static_cast<uint32_t>(PreciseMsSinceTimeBase()));
    EXPECT_LT(provider.LastWriteTimeMs(), previous);
}

TEST_F(SourceNotify, DeliveriesWithoutASessionOrListenerAreMinus13) {
    const std::string device = "stranger";
    const PerixServiceId id = EngineId(device, "s", 3);
    uint8_t bytes[2] = {1, 2};
    PerixStreamNotify notify{0, 0, 0, 2, bytes};
    EXPECT_EQ(-13, OrbPerix::SourceProvider::AudioNotify(&id, &notify));
    EXPECT_EQ(-13, OrbPerix::SourceProvider::PartialRefreshNotify(&id, &notify));
    // A session whose listener lacks the stream entries.
    PERIXInfo info = MakeInfo("no-streams");
    ProviderListener none{};
    ASSERT_EQ(0, source->Init());
    ASSERT_EQ(0, source->RegisterPERIXListener(&info, &none));
    const std::string known = "no-streams";
    const PerixServiceId kid = EngineId(known, "s", 3);
    EXPECT_EQ(-13, OrbPerix::SourceProvider::AudioNotify(&kid, &notify));
    EXPECT_EQ(-13, OrbPerix::SourceProvider::PartialRefreshNotify(&kid, &notify));
    EXPECT_EQ(2, CountTraceLines("On AudioNotify, Listen function is null"
                                 "(OrbPerix::SourceProvider::AudioNotify)"));
    EXPECT_EQ(2, CountTraceLines("On PartialRefreshNotify, Listen function is null"
                                 "(OrbPerix::SourceProvider::PartialRefreshNotify)"));
    EXPECT_EQ(-2, OrbPerix::SourceProvider::AudioNotify(nullptr, &notify));
    EXPECT_EQ(-2, OrbPerix::SourceProvider::PartialRefreshNotify(&kid, nullptr));
    EXPECT_TRUE(streams().Audio().empty());
}

// Length 0 reaches the listener as (0, null); a null buffer that claims a length is a corrupt
// record: refused with one line, never shown to the host as (length, null).
TEST_F(SourceNotify, LengthZeroReachesTheListenerEmptyAndNullDataWithALengthIsRefused) {
    PERIXInfo info = MakeInfo("peer-z");
    ConnectPeer(info);
    const std::string device = "peer-z";
    const PerixServiceId id = EngineId(device, "s", 0);
    uint8_t bytes[3] = {1, 2, 3};
    PerixStreamNotify nullData{5, 6, 0, 3, nullptr};
    PerixStreamNotify zero{5, 6, 0, 0, bytes};
    EXPECT_EQ(-2, perix_sim_fire_audio(&id, &nullData));
    EXPECT_EQ(0, perix_sim_fire_audio(&id, &zero));
    EXPECT_EQ(-2, perix_sim_fire_refresh(&id, &nullData));
    EXPECT_EQ(0, perix_sim_fire_refresh(&id, &zero));
    for (const auto& list : {streams().Audio(), streams().Refresh()}) {
        ASSERT_EQ(1u, list.size());
        EXPECT_EQ(0u, list[0].dataLen);
        EXPECT_EQ(nullptr, list[0].pointer);
        EXPECT_EQ(5u, list[0].a);
    }
    EXPECT_EQ(3u, streams().Audio()[0].serviceType) << "engine type 0 converted";
    EXPECT_EQ(1, CountTraceLines("On AudioNotify, malformed record: data is null but its length "
                                 "is 3(OrbPerix::SourceProvider::AudioNotify)"));
    EXPECT_EQ(1, CountTraceLines("On PartialRefreshNotify, malformed record: data is null but its "
                                 "length is 3(OrbPerix::SourceProvider::PartialRefreshNotify)"));
}

// Audio records carry the converted type: 0..3 become 3, 2, 10, 9; anything else the default 3,
// with a line, and is still delivered.
TEST_F(SourceNotify, AudioTypesAreConvertedAndUnknownOnesDeliveredWithTheDefault) {
    PERIXInfo info = MakeInfo("peer-u");
    ConnectPeer(info);
    const std::string device = "peer-u";
    const uint32_t engineTypes[] = {0, 1, 2, 3, 12};
    const uint32_t delivered[] = {3, 2, 10, 9, 3};
    uint8_t byte = 9;
    PerixStreamNotify notify{0, 0, 0, 1, &byte};
    for (uint32_t type : engineTypes) {
        const PerixServiceId id = EngineId(device, "s", type);
        EXPECT_EQ(0, perix_sim_fire_audio(&id, &notify)) << type;
    }
    ASSERT_EQ(5u, streams().Audio().size());
    for (size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(delivered[i], streams().Audio()[i].serviceType) << engineTypes[i];
    }
    EXPECT_EQ(1, CountTraceLines("Invalid deviceType 12, using default value"
                                 "(OrbPerix::BaseProvider::ConvertAudioDeviceType)"));
}

}  // namespace
