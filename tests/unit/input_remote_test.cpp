// Remote-control posting: refusals, the 8-bit capacity of the long kinds, the input-time
// rules, and the packet as the simulated peer decoded it.
#include "input_test_helpers.h"
#include "provider/input_provider.h"

// Providers built directly on the live engine load.
#include "provider_tables.h"

namespace {

using namespace input_test;
using OrbPerix::InputGlobals;
using OrbPerix::InputProvider;
using InputRemote = InputTest;

TEST_F(InputRemote, RefusalsComeBeforeAnyWrite) {
    RemoteCtrlEvent mouse = Event(6);
    ServiceInfo service = ButtonService("peer-a");
    EXPECT_EQ(-2, provider->PostRemoteCtrlEvent(nullptr, &mouse));
    EXPECT_EQ(-2, provider->PostRemoteCtrlEvent(&service, nullptr));
    EXPECT_EQ(-4, provider->PostRemoteCtrlEvent(&service, &mouse));
    const std::string null = "PostRemoteCtrlEvent the parameter service or event is null.";
    EXPECT_EQ((std::vector<LogLine>{
                  {4, Line(null, "PostRemoteCtrlEvent")},
                  {4, Line(null, "PostRemoteCtrlEvent")},
                  {4, Line("serviceHandler is null, Please Connect device first.", "PostRemoteCtrlEvent")}}),
              TraceLines());
    EXPECT_TRUE(EngineCallNames().empty());
}

// The post path hands the encoder an 8-bit capacity: 489 bytes for text input and 491 for a
// message arrive as 233 and 235. The largest content that still fits is written whole, one more
// byte is refused by the encoder; a ten-pointer touch still fits the 105 bytes of the short kinds.
TEST_F(InputRemote, LongKindsAreCutToTheEightBitCapacity) {
    Connect("peer-a");
    ServiceInfo service = ButtonService("peer-a");
    struct Case {
        uint32_t type;
        uint16_t length;
        int32_t written;
    };
    const Case cases[] = {{7, 217, 236}, {7, 218, -1}, {10, 219, 238}, {10, 220, -1}};
    for (const Case& c : cases) {
        RemoteCtrlEvent event = Event(c.type, 0);
        if (c.type == 7) {
            event.payload.input.content.contentLength = c.length;
            std::memset(event.payload.input.content.content, 'a', c.length);
        } else {
            event.payload.message.messageLength = c.length;
        }
        provider->PostRemoteCtrlEvent(&service, &event);
    }
    RemoteCtrlEvent touch = Event(0, 0);
    touch.payload.touch.pointerCount = 10;
    provider->PostRemoteCtrlEvent(&service, &touch);
    const std::vector<perix_sim_call> writes = EngineCalls(PERIX_SIM_BUTTON, 3);
    ASSERT_EQ(5u, writes.size());
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(cases[i].written, static_cast<int32_t>(writes[i].values[2]))
            << "type " << cases[i].type << ", " << cases[i].length << " bytes";
    }
    EXPECT_EQ(108, static_cast<int32_t>(writes[4].values[2]));
}

TEST_F(InputRemote, EveryEncodableKindReachesThePeerDecodable) {
    Connect("peer-a");
    ServiceInfo service = ButtonService("peer-a");
    std::vector<RemoteCtrlEvent> events = sample_events::EveryKind();
    for (RemoteCtrlEvent& event : events) {
        EXPECT_EQ(0, provider->PostRemoteCtrlEvent(&service, &event)) << event.type;
    }
    ASSERT_EQ(static_cast<int>(events.size()), perix_sim_peer_packet_count());
    for (int i = 0; i < perix_sim_peer_packet_count(); ++i) {
        perix_sim_packet packet{};
        ASSERT_EQ(0, perix_sim_peer_get_packet(i, &packet));
        EXPECT_EQ(1, packet.decoded) << packet.description;
        EXPECT_EQ(events[static_cast<size_t>(i)].type, packet.type) << packet.description;
        EXPECT_LE(packet.length, 512u);
    }
}

TEST_F(InputRemote, AFailedEncodingReachesTheWriteWithItsBits) {
    Connect("peer-a");
    ServiceInfo service = ButtonService("peer-a");
    RemoteCtrlEvent rotate = Event(4);  // no encoder for this kind
    perix_sim_set_slot_result(PERIX_SIM_BUTTON, 3, 17);
    EXPECT_EQ(17, provider->PostRemoteCtrlEvent(&service, &rotate));
    const std::vector<perix_sim_call> writes = EngineCalls(PERIX_SIM_BUTTON, 3);
    ASSERT_EQ(1u, writes.size());
    EXPECT_EQ(0xFFFFFFFFu, writes[0].values[2]);
}

TEST_F(InputRemote, OnlyWheelAndMousePressOrMoveSetTheInputTime) {
    Connect("peer-a");
    ServiceInfo service = ButtonService("peer-a");
    std::this_thread::sleep_for(std::chrono::milliseconds(5));  // so that "now" is not 0 ms
    for (uint32_t type : {0u, 1u, 2u, 3u, 9u}) {
        RemoteCtrlEvent event = Event(type);
        provider->PostRemoteCtrlEvent(&service, &event);
    }
    RemoteCtrlEvent mouseUp = Event(6, 1);
    ASSERT_EQ(0, provider->PostRemoteCtrlEvent(&service, &mouseUp));
    EXPECT_EQ(0u, InputGlobals().lastInputTime.load());

    perix_sim_set_slot_result(PERIX_SIM_BUTTON, 3, 3);
    RemoteCtrlEvent wheel = Event(8);
    EXPECT_EQ(3, provider->PostRemoteCtrlEvent(&service, &wheel));
    EXPECT_EQ(0u, InputGlobals().lastInputTime.load()) << "a failed write does not count";
    perix_sim_set_slot_result(PERIX_SIM_BUTTON, 3, 0);

    for (RemoteCtrlEvent event : {Event(8), Event(6, 0), Event(6, 2)}) {
        InputGlobals().lastInputTime.store(0);
        ASSERT_EQ(0, provider->PostRemoteCtrlEvent(&service, &event));
        EXPECT_NE(0u, InputGlobals().lastInputTime.load()) << event.type;
    }
}

// A host's subclass that overrides the write slot receives the packet.
class CapturingProvider : public InputProvider {
public:
    using InputProvider::InputProvider;
    int ButtonWriteStreamBuffer(ServiceInfo*, uint8_t* data, uint32_t len) override {
        captured.assign(data, data + len);
        return 0;
    }
    std::vector<uint8_t> captured;
};

TEST_F(InputRemote, PostingWritesThroughTheVirtualWriteSlot) {
    CapturingProvider capturing(LiveEngineLoad());
    ASSERT_EQ(0, capturing.Init());
    PERIXInfo info = MakeInfo("peer-a");
    ASSERT_EQ(0, capturing.RegisterPERIXListener(&info, &listener));
    ServiceInfo service = ButtonService("peer-a");
    RemoteCtrlEvent mouse = Event(6, 0);
    perix_sim_clear_calls();
    ASSERT_EQ(0, capturing.PostRemoteCtrlEvent(&service, &mouse));
    EXPECT_FALSE(capturing.captured.empty());
    EXPECT_TRUE(EngineCalls(PERIX_SIM_BUTTON, 3).empty());
    capturing.DeInit();
}

}  // namespace
