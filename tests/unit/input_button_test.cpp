// The button channel, the engine's button notification and the heartbeat window. Timing checks
// are tolerant: they look at order and at counts over generous windows, never exact times.
#include <atomic>

#include "input_test_helpers.h"
#include "platform/platform.h"
#include "provider/input_provider.h"

namespace {

using namespace input_test;
using OrbPerix::InputGlobals;
using InputButton = InputTest;

TEST_F(InputButton, OpenAndCloseRefusals) {
    ServiceInfo wrongType{"peer-a", "btn-1", 5};
    ServiceInfo service = ButtonService("peer-a");
    EXPECT_EQ(-2, provider->OpenButton(nullptr, nullptr));
    EXPECT_TRUE(TraceLines().empty()) << "a null service is refused silently";
    EXPECT_EQ(-2, provider->OpenButton(&wrongType, nullptr));
    EXPECT_EQ(-2, provider->OpenButton(&service, nullptr));
    EXPECT_EQ(-2, provider->CloseButton(nullptr, nullptr, nullptr));
    EXPECT_EQ(-2, provider->CloseButton(&wrongType, nullptr, nullptr));
    EXPECT_EQ(-2, provider->ButtonWriteStreamBuffer(nullptr, nullptr, 0));
    EXPECT_EQ((std::vector<LogLine>{{4, Line("OpenButton failed, type Invalid: 5", "OpenButton")},
                                    {4, Line("OpenButton failed, sessionInfo is null.", "OpenButton")},
                                    {4, Line("CloseButton service is null", "CloseButton")},
                                    {4, Line("CloseButton failed, type Invalid: 5", "CloseButton")}}),
              TraceLines());
    EXPECT_TRUE(EngineCallNames().empty());

    Connect("peer-a");
    ClearLogs();
    perix_sim_set_slot_result(PERIX_SIM_BUTTON, 1, 61);
    perix_sim_set_slot_result(PERIX_SIM_BUTTON, 2, 62);
    perix_sim_set_slot_result(PERIX_SIM_BUTTON, 3, 63);
    uint8_t byte = 0;
    EXPECT_EQ(61, provider->OpenButton(&service, nullptr));
    EXPECT_EQ(62, provider->CloseButton(&service, nullptr, nullptr));
    EXPECT_EQ(63, provider->ButtonWriteStreamBuffer(&service, &byte, 1));
    EXPECT_EQ((std::vector<LogLine>{
                  {4, Line("ButtonOpen failed with ret=61", "OpenButton")},
                  {4, Line("ButtonClose failed with ret=62", "CloseButton")},
                  {4, Line("ButtonWriteStreamBuffer failed with ret=63", "ButtonWriteStreamBuffer")}}),
              TraceLines());
}

TEST_F(InputButton, CloseNeedsNoSessionAndClearsTheOpenedFlag) {
    ConnectAndOpen("peer-a");
    EXPECT_TRUE(InputGlobals().buttonOpened.load());
    ServiceInfo unknown = ButtonService("nobody");
    EXPECT_EQ(0, provider->CloseButton(&unknown, nullptr, nullptr));
    EXPECT_FALSE(InputGlobals().buttonOpened.load());
    const perix_sim_call close = EngineCalls(PERIX_SIM_BUTTON, 2).at(0);
    EXPECT_STREQ("nobody", close.text);
    EXPECT_STREQ("btn-1", close.text2);
}

TEST_F(InputButton, NotificationsGiveThePeerAPrivateCopyAndOnlyOneZeroOpensTheChannel) {
    Connect("peer-a");
    uint8_t extra[] = {4, 5, 6};
    PerixButtonIdentity identity{"peer-a", 6, "btn-1", 5};
    PerixButtonNotify notOpen{1, 1, 0, sizeof(extra), extra};
    EXPECT_EQ(0, perix_sim_fire_button(&identity, &notOpen));
    EXPECT_FALSE(InputGlobals().buttonOpened.load()) << "(1,1) leaves the flag as it was";
    PerixButtonNotify open{1, 0, 0, 0, nullptr};
    EXPECT_EQ(0, perix_sim_fire_button(&identity, &open));
    EXPECT_TRUE(InputGlobals().buttonOpened.load());
    ASSERT_EQ(2u, seen().buttons.size());
    const Seen::Button& first = seen().buttons[0];
    EXPECT_EQ("peer-a", first.service.deviceId);
    EXPECT_EQ("btn-1", first.service.serviceId);
    EXPECT_EQ(6u, first.service.serviceType);
    EXPECT_EQ(3u, first.dataLen);
    EXPECT_NE(static_cast<const uint8_t*>(extra), first.pointer);
    EXPECT_EQ((std::vector<uint8_t>{4, 5, 6}), first.bytes);
    EXPECT_EQ(nullptr, seen().buttons[1].pointer) << "no bytes, no copy";

    PerixButtonIdentity stranger{"peer-z", 6, "btn-1", 5};
    EXPECT_EQ(-13, perix_sim_fire_button(&stranger, &open));
    EXPECT_EQ(-13, perix_sim_fire_button(nullptr, &open));
    EXPECT_EQ(2, CountTraceLines(Line("On ButtonNotify, Listen function is null", "ButtonNotify")));
}

TEST_F(InputButton, NotificationForAPeerWithoutAButtonListenerIsRefused) {
    ASSERT_EQ(0, provider->Init());
    PERIXInfo info = MakeInfo("peer-a");
    ProviderListener noButton = AllListeners();
    noButton.onButtonNotify = nullptr;
    ASSERT_EQ(0, provider->RegisterPERIXListener(&info, &noButton));
    PerixButtonIdentity identity{"peer-a", 6, "btn-1", 5};
    PerixButtonNotify open{1, 0, 0, 0, nullptr};
    EXPECT_EQ(-13, perix_sim_fire_button(&identity, &open));
    EXPECT_FALSE(InputGlobals().buttonOpened.load());
}

TEST_F(InputButton, NoHeartbeatWhileTheChannelIsNotReportedOpen) {
    Connect("peer-a");
    ServiceInfo service = ButtonService("peer-a");
    ASSERT_EQ(0, provider->OpenButton(&service, nullptr));  // the peer stays silent
    RemoteCtrlEvent wheel = Event(8);
    ASSERT_EQ(0, provider->PostRemoteCtrlEvent(&service, &wheel));
    EXPECT_EQ(0, perix_sim_peer_wait_heartbeats(1, 400));
}

TEST_F(InputButton, HeartbeatsFlowAfterACountedInputToTheOpenedServiceAndStopAfterDeInit) {
    ConnectAndOpen("peer-a");
    ServiceInfo service = ButtonService("peer-a");
    RemoteCtrlEvent key = Event(1);
    ASSERT_EQ(0, provider->PostRemoteCtrlEvent(&service, &key));
    EXPECT_EQ(0, perix_sim_peer_wait_heartbeats(1, 300)) << "a key event does not count";

    RemoteCtrlEvent move = Event(6, 2);
    ASSERT_EQ(0, provider->PostRemoteCtrlEvent(&service, &move));
    EXPECT_GE(perix_sim_peer_wait_heartbeats(3, 3000), 3);
    const std::vector<perix_sim_call> writes = EngineCalls(PERIX_SIM_BUTTON, 3);
    ASSERT_FALSE(writes.empty());
    EXPECT_EQ(11u, writes.back().values[2]);
    EXPECT_STREQ("peer-a", writes.back().text);
    EXPECT_STREQ("btn-1", writes.back().text2);

    provider->DeInit();
    const int atStop = perix_sim_peer_heartbeat_count();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(atStop, perix_sim_peer_heartbeat_count()) << "the thread was joined";
}

TEST_F(InputButton, HeartbeatWaitsFiftyMillisecondsAfterTheInput) {
    ConnectAndOpen("peer-a");
    ServiceInfo service = ButtonService("peer-a");
    RemoteCtrlEvent wheel = Event(8);
    const auto posted = std::chrono::steady_clock::now();
    ASSERT_EQ(0, provider->PostRemoteCtrlEvent(&service, &wheel));
    ASSERT_GE(perix_sim_peer_wait_heartbeats(1, 3000), 1);
    EXPECT_GE(std::chrono::steady_clock::now() - posted, std::chrono::milliseconds(45));
}

// The input stamp reuses the encoder's counter reading: it must sit on the heartbeat's own
// time base, within the post, so that the window opens no earlier than 50 ms after the input and
// closes 300000 ms after it (each give or take the heartbeat's 10 ms polling).
TEST_F(InputButton, HeartbeatWindowOpensAndClosesWhereTheInputTimeSaysWithinATick) {
    using OrbPerix::InputProvider;
    const int64_t frequency = OrbPerix::platform::PerformanceFrequency();
    constexpr uint32_t kTickMs = 10;
    ConnectAndOpen("peer-a");
    ServiceInfo service = ButtonService("peer-a");
    RemoteCtrlEvent wheel = Event(8);

    const auto posted = std::chrono::steady_clock::now();
    const uint32_t before = InputProvider::NowMilliseconds();
    ASSERT_EQ(0, provider->PostRemoteCtrlEvent(&service, &wheel));
    const uint32_t after = InputProvider::NowMilliseconds();
    const uint32_t stamp = InputGlobals().lastInputTime.load();
    EXPECT_GE(stamp, before) << "never earlier than the post";
    EXPECT_LE(stamp, after) << "taken during the post";

    // Opens: not before 50 ms (less the truncation to whole milliseconds), and not long after.
    ASSERT_GE(perix_sim_peer_wait_heartbeats(1, 3000), 1);
    const auto opened = std::chrono::steady_clock::now() - posted;
    EXPECT_GE(opened, std::chrono::milliseconds(49));
    EXPECT_LT(opened, std::chrono::milliseconds(50 + kTickMs + 1000)) << "generous for a busy machine";

    // Closes: move the time base back so that the input lies 1500 ms before the window's end.
    const uint32_t age = InputProvider::NowMilliseconds() - stamp;
    const int64_t shiftMs = 300000 - 1500 - static_cast<int64_t>(age);
    InputGlobals().clockStart.fetch_sub(shiftMs * frequency / 1000);
    const auto shifted = std::chrono::steady_clock::now();
    const int atShift = perix_sim_peer_heartbeat_count();
    EXPECT_GT(perix_sim_peer_wait_heartbeats(atShift + 1, 1000), atShift)
        << "still inside the window";
    std::this_thread::sleep_until(shifted + std::chrono::milliseconds(1500 + kTickMs + 300));
    const int closed = perix_sim_peer_heartbeat_count();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(closed, perix_sim_peer_heartbeat_count()) << "no heartbeat after the window";
}

TEST_F(InputButton, HeartbeatGoesNowhereWithoutAnOpenedService) {
    ConnectAndOpen("peer-a");
    ServiceInfo service = ButtonService("peer-a");
    RemoteCtrlEvent wheel = Event(8);
    ASSERT_EQ(0, provider->PostRemoteCtrlEvent(&service, &wheel));
    ASSERT_GE(perix_sim_peer_wait_heartbeats(1, 3000), 1);
    PERIXInfo info = MakeInfo("peer-a");
    ASSERT_EQ(0, provider->DisconnectDevice(&info));
    EXPECT_TRUE(WaitFor([] {
        return HasTraceLine(Line("SendButtonHeart: sessionInfo is null", "SendButtonHeart"));
    }));
}

TEST_F(InputButton, ASecondProvidersCreationEndsTheFirstsHeartbeatWithoutAbort) {
    ConnectAndOpen("peer-a");
    ServiceInfo service = ButtonService("peer-a");
    RemoteCtrlEvent wheel = Event(8);
    ASSERT_EQ(0, provider->PostRemoteCtrlEvent(&service, &wheel));
    ASSERT_GE(perix_sim_peer_wait_heartbeats(1, 3000), 1);

    auto second = manager().CreateInputProvider();
    ASSERT_NE(nullptr, second);
    EXPECT_FALSE(InputGlobals().heartbeatRunning.load());
    EXPECT_EQ(0u, InputGlobals().lastInputTime.load());
    EXPECT_FALSE(InputGlobals().buttonOpened.load());
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const int settled = perix_sim_peer_heartbeat_count();
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    EXPECT_EQ(settled, perix_sim_peer_heartbeat_count());

    perix_sim_clear_calls();
    provider->DeInit();  // flag already clear: returns at once, nothing released
    EXPECT_TRUE(EngineCalls(PERIX_SIM_MAIN, 5).empty());
    // Destroying the first provider joins its ended thread instead of aborting.
    ASSERT_TRUE(manager().DestoryInputProvider(provider));
    provider.reset();
    provider = second;
    // Sessions are process-wide: the second provider reaches the first one's peer.
    PERIXInfo info = MakeInfo("peer-a");
    EXPECT_EQ(0, provider->DisconnectDevice(&info));
}

TEST_F(InputButton, ASecondInitReplacesTheHeartbeatThread) {
    ConnectAndOpen("peer-a");
    ASSERT_EQ(0, provider->Init());
    EXPECT_TRUE(InputGlobals().heartbeatRunning.load());
    ServiceInfo service = ButtonService("peer-a");
    RemoteCtrlEvent wheel = Event(8);
    ASSERT_EQ(0, provider->PostRemoteCtrlEvent(&service, &wheel));
    EXPECT_GE(perix_sim_peer_wait_heartbeats(2, 3000), 2) << "the new thread beats";
}

struct HookTarget {
    OrbPerix::IInputProvider* provider;
    std::atomic<int> calls{0};
};

void DeInitFromTheHeartbeat(void* context, int heartbeat) {
    auto* target = static_cast<HookTarget*>(context);
    if (heartbeat != 0 && target->calls.fetch_add(1) == 0) {
        target->provider->DeInit();
    }
}

TEST_F(InputButton, DeInitOnTheHeartbeatThreadLogsAndReturns) {
    ConnectAndOpen("peer-a");
    HookTarget target{provider.get()};
    perix_sim_peer_set_write_hook(&DeInitFromTheHeartbeat, &target);
    ServiceInfo service = ButtonService("peer-a");
    RemoteCtrlEvent wheel = Event(8);
    ASSERT_EQ(0, provider->PostRemoteCtrlEvent(&service, &wheel));
    EXPECT_TRUE(WaitFor([] {
        return HasTraceLine(Line("DeInit called on the heartbeat thread, not joined", "DeInit"));
    }));
    perix_sim_peer_set_write_hook(nullptr, nullptr);
    EXPECT_FALSE(InputGlobals().heartbeatRunning.load());
    EXPECT_EQ(1u, EngineCalls(PERIX_SIM_MAIN, 5).size()) << "sessions were still torn down";
}

}  // namespace
