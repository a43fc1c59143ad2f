// Remote-control posting: refusals, buffer size and 8-bit capacity by kind, the input-time
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

TEST(RemoteBuffers, SizesAndEightBitCapacityByKind) {
    EXPECT_EQ(489u, InputProvider::SendBufferSize(7));
    EXPECT_EQ(233, InputProvider::EncoderCapacity(7));
    EXPECT_EQ(491u, InputProvider::SendBufferSize(10));
    EXPECT_EQ(235, InputProvider::EncoderCapacity(10));
    for (uint32_t type : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 8u, 9u, 11u, 0xFFFFFFFFu}) {
        EXPECT_EQ(105u, InputProvider::SendBufferSize(type)) << type;
        EXPECT_EQ(105, InputProvider::EncoderCapacity(type)) << type;
    }
}

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

TEST_F(InputRemote, LongKindsAreCutToTheEightBitCapacity) {
    Connect("peer-a");
    ServiceInfo service = ButtonService("peer-a");
    RemoteCtrlEvent text = Event(7, 0);
    text.payload.input.content.contentLength = 472;
    std::memset(text.payload.input.content.content, 'a', 472);
    provider->PostRemoteCtrlEvent(&service, &text);
    RemoteCtrlEvent message = Event(10, 0);
    message.payload.message.messageLength = 472;
    provider->PostRemoteCtrlEvent(&service, &message);
    const std::vector<perix_sim_call> writes = EngineCalls(PERIX_SIM_BUTTON, 3);
    ASSERT_EQ(2u, writes.size());
    for (const perix_sim_call& write : writes) {
        // Whatever the encoder made of the content, it never had more than 235 bytes.
        EXPECT_TRUE(static_cast<int32_t>(write.values[2]) < 0 || write.values[2] <= 235 + 5)
            << write.values[2];
    }
}

TEST_F(InputRemote, EveryEncodableKindReachesThePeerDecodable) {
    Connect("peer-a");
    ServiceInfo service = ButtonService("peer-a");
    RemoteCtrlEvent touch = Event(0, 0);
    touch.payload.touch.pointerCount = 1;
    RemoteCtrlEvent text = Event(7, 0);
    text.payload.input.content.contentLength = 3;
    std::memcpy(text.payload.input.content.content, "abc", 3);
    RemoteCtrlEvent message = Event(10, 0);
    message.payload.message.messageLength = 5;
    std::vector<RemoteCtrlEvent> events = {touch, Event(1), Event(2), Event(3), Event(6, 0),
                                           text, Event(8), Event(9), message};
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
