// Regression tests: the ways a host process died when the engine behaved like a real closed one
// (really unloaded on Finalize, handles freed on release, callback records kept by address and
// called late, malformed records) or when the host used the library from several threads. Each
// test names the fault it keeps out. The strict simulated engine aborts on any use of a
// released handle, and a jump into its unloaded module crashes: those faults fail loudly.
#include <atomic>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "engine/engine_gate.h"
#include "input_test_helpers.h"
#include "orbperix/orbperix_c.h"
#include "perix_sim_peer.h"
#include "perix_sim_streams.h"

namespace {

using namespace input_test;
using OrbPerix::PERIXProviderManager;

bool WaitFor(const std::atomic<bool>& flag, int timeoutMs = 5000) {
    for (int waited = 0; !flag.load() && waited < timeoutMs; ++waited) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return flag.load();
}

class HostSafety : public InputTest {};

// 1: Finalize unloaded the engine under a running heartbeat thread.
TEST_F(HostSafety, HeartbeatFallsSilentWhenFinalizeUnloadsTheEngine) {
    ConnectAndOpen("peer-hb");
    ServiceInfo service = ButtonService("peer-hb");
    RemoteCtrlEvent move = Event(6, 2);
    ASSERT_EQ(0, provider->PostRemoteCtrlEvent(&service, &move));
    ASSERT_GE(perix_sim_peer_wait_heartbeats(2, 5000), 2) << "heartbeats flow before Finalize";
    manager().Finalize();
    EXPECT_EQ(0, perix_sim_engine_mapped());
    const int after = perix_sim_peer_heartbeat_count();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(after, perix_sim_peer_heartbeat_count());
    // Teardown of a provider whose engine is gone calls nothing.
    provider->DeInit();
    EXPECT_EQ(0, perix_sim_engine_mapped());
}

// 3: a provider created after Finalize copied stale entries and jumped into the unloaded engine.
TEST_F(HostSafety, ProvidersOfAFinalisedEngineGetMinus13AndNeverJump) {
    ASSERT_EQ(0, provider->Init());  // created before Finalize
    manager().Finalize();
    ASSERT_EQ(0, perix_sim_engine_mapped());
    auto late = manager().CreateSourceProvider();
    ASSERT_NE(nullptr, late);
    ASSERT_EQ(0, late->Init());
    PERIXInfo info = MakeInfo("peer-late");
    ProviderListener none{};
    EXPECT_EQ(-13, late->RegisterPERIXListener(&info, &none));
    EXPECT_EQ(-13, provider->RegisterPERIXListener(&info, &none));
    ServiceInfo audio{"peer-late", "audio", 3};
    AudioParam param{};
    EXPECT_EQ(-13, late->OpenAudio(&audio, &param));
    EXPECT_EQ(1, CountTraceLines("OpenAudio failed with ret=-13(OrbPerix::SourceProvider::OpenAudio)"));
    ServiceInfo button = ButtonService("peer-late");
    EXPECT_EQ(-13, provider->ButtonWriteStreamBuffer(&button, nullptr, 0));
    auto sink = manager().CreateSinkProvider();
    EXPECT_EQ(-13, sink->GetConnectionStatus());
    late->DeInit();
    manager().DestorySourceProvider(late);
    manager().DestorySinkProvider(sink);
}

// 5: callback records lived inside provider objects; a late notification read freed memory.
TEST_F(HostSafety, LateNotificationsAfterTheProviderIsGoneFindNoSession) {
    Connect("peer-gone");
    void* handle = perix_sim_last_handle();
    auto source = manager().CreateSourceProvider();
    ASSERT_EQ(0, source->Init());
    PERIXInfo info = MakeInfo("peer-src");
    ProviderListener none{};
    ASSERT_EQ(0, source->RegisterPERIXListener(&info, &none));
    source->DeInit();
    manager().DestorySourceProvider(source);
    source.reset();
    provider->DeInit();
    manager().DestoryInputProvider(provider);
    provider.reset();
    ClearLogs();

    const std::string device = "peer-gone";
    PerixButtonIdentity identity{device.c_str(), 9, "btn", 3};
    PerixButtonNotify notify{1, 0, 0, 0, nullptr};
    EXPECT_EQ(-13, perix_sim_fire_button(&identity, &notify));
    PerixServiceId id{device.c_str(), 9, "s", 1, 3};
    PerixStreamNotify data{1, 2, 0, 0, nullptr};
    EXPECT_EQ(-13, perix_sim_fire_audio(&id, &data));
    EXPECT_EQ(-13, perix_sim_fire_refresh(&id, &data));
    PerixDeviceChangeNotify change{device.c_str(), 9, 1, 2};
    EXPECT_EQ(0, perix_sim_fire_device_change(handle, &change));
    EXPECT_EQ(1, CountTraceLines("On ButtonNotify, Listen function is null"
                                 "(OrbPerix::InputProvider::ButtonNotify)"));
    EXPECT_EQ(1, CountTraceLines("On DeviceChange, Listen function is null"
                                 "(OrbPerix::BaseProvider::DeviceChange)"));
    manager().Finalize();
    EXPECT_EQ(-13, perix_sim_fire_button(&identity, &notify)) << "after the engine unloaded";
}

// 6: an operation copied the handle out and called the engine after DisconnectDevice released it.
TEST_F(HostSafety, AnOperationRacingDisconnectFinishesOnTheLiveHandle) {
    Connect("peer-race");
    perix_sim_set_slot_delay(PERIX_SIM_MAIN, 10, 150);  // PERIXAddVirtualService
    std::atomic<bool> started{false};
    int result = -1;
    std::thread op([&] {
        ServiceInfo service{"peer-race", "virt", 2};
        started = true;
        result = provider->StartDeviceService(&service, nullptr);
    });
    ASSERT_TRUE(WaitFor(started));
    std::this_thread::sleep_for(std::chrono::milliseconds(40));
    PERIXInfo info = MakeInfo("peer-race");
    EXPECT_EQ(0, provider->DisconnectDevice(&info));
    op.join();
    EXPECT_EQ(0, result);
    // The release comes after the last call that used the handle.
    const std::vector<std::string> calls = EngineCallNames();
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ("main.PERIXReleaseServiceHandle", calls.back());
    EXPECT_EQ(0, perix_sim_violation_count());
    ServiceInfo after{"peer-race", "virt", 2};
    EXPECT_EQ(-4, provider->StartDeviceService(&after, nullptr)) << "not connected any more";
}

// 7: SendByHandler passed the handle that DisconnectDevice had released.
TEST_F(HostSafety, SendByHandlerAfterDisconnectPassesNoHandle) {
    Connect("peer-pass");
    PERIXInfo info = MakeInfo("peer-pass");
    ASSERT_EQ(0, provider->DisconnectDevice(&info));
    perix_sim_clear_calls();
    provider->SendByHandler(nullptr, nullptr, nullptr);
    const std::vector<perix_sim_call> calls = EngineCalls(PERIX_SIM_MAIN, 9);
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(0u, calls[0].args[0]);
}

// 8, 9: malformed records terminated the host or reached it as (length, null).
TEST_F(HostSafety, MalformedRecordsAreRefusedWithOneLine) {
    Connect("peer-bad");
    void* handle = perix_sim_last_handle();
    PerixDeviceChangeNotify nullText{nullptr, 5, 1, 2};
    EXPECT_EQ(0, perix_sim_fire_device_change(handle, &nullText));
    PerixServiceChangeNotify hugeText{"peer-bad", 8, "svc", 0x7FFFFFFFu, 1, 2, 3};
    EXPECT_EQ(0, perix_sim_fire_service_change(handle, &hugeText));
    const std::string device = "peer-bad";
    PerixButtonIdentity identity{device.c_str(), 8, "btn", 3};
    PerixButtonNotify lengthNoData{2, 0, 0, 4096, nullptr};
    EXPECT_EQ(-2, perix_sim_fire_button(&identity, &lengthNoData));
    EXPECT_TRUE(seen().devices.empty() && seen().services.empty() && seen().buttons.empty())
        << "the host saw none of them";
    EXPECT_EQ(1, CountTraceLines("On DeviceChange, malformed record: deviceId is null but its "
                                 "length is 5(OrbPerix::BaseProvider::DeviceChange)"));
    EXPECT_EQ(1, CountTraceLines("On DeviceServiceChange, malformed record: serviceId length "
                                 "2147483647 is above the limit 4096"
                                 "(OrbPerix::BaseProvider::DeviceServiceChange)"));
    EXPECT_EQ(1, CountTraceLines("On ButtonNotify, malformed record: dataExtend is null but its "
                                 "length is 4096(OrbPerix::InputProvider::ButtonNotify)"));
}

int ThrowingDevice(DeviceChangeInfo*) { throw std::runtime_error("host bug"); }
int ThrowingService(ServiceChangeInfo*) { throw 42; }
int ThrowingData(std::string, BinaryData*) { throw std::runtime_error("host bug"); }
int ThrowingButton(ServiceInfo*, ButtonNotifyInfo*) { throw std::runtime_error("host bug"); }

// 10: a throwing host listener escaped into the engine's thread.
TEST_F(HostSafety, AThrowingListenerIsLoggedOnceOnEveryPath) {
    ASSERT_EQ(0, provider->Init());
    initialised = true;
    listener = ProviderListener{};
    listener.onDeviceChange = &ThrowingDevice;
    listener.onServiceChange = &ThrowingService;
    listener.onDataReceive = &ThrowingData;
    listener.onButtonNotify = &ThrowingButton;
    PERIXInfo info = MakeInfo("peer-throw");
    ASSERT_EQ(0, provider->RegisterPERIXListener(&info, &listener));
    void* handle = perix_sim_last_handle();
    // Delivered from the engine's own thread, as a real engine does.
    ASSERT_EQ(0, perix_sim_peer_post_device_change(handle, "peer-throw", 1, 2));
    ASSERT_EQ(0, perix_sim_peer_post_service_change(handle, "peer-throw", "svc", 1, 2, 3));
    const uint8_t bytes[2] = {7, 8};
    ASSERT_EQ(0, perix_sim_peer_post_data(handle, 1, 2, bytes, 2));
    perix_sim_peer_flush();
    const std::string device = "peer-throw";
    PerixButtonIdentity identity{device.c_str(), 10, "btn", 3};
    PerixButtonNotify notify{1, 0, 0, 0, nullptr};
    EXPECT_EQ(-13, perix_sim_fire_button(&identity, &notify));
    for (const char* line : {"On DeviceChange, listener threw an exception"
                             "(OrbPerix::BaseProvider::DeviceChange)",
                             "On DeviceServiceChange, listener threw an exception"
                             "(OrbPerix::BaseProvider::DeviceServiceChange)",
                             "On DataReceive, listener threw an exception"
                             "(OrbPerix::BaseProvider::DataReceive)",
                             "On ButtonNotify, listener threw an exception"
                             "(OrbPerix::InputProvider::ButtonNotify)"}) {
        EXPECT_EQ(1, CountTraceLines(line)) << line;
    }
}

// A listener that disconnects and de-initialises from inside a notification while the engine's
// release of another session waits for that very notification to end.
struct ReentrantCase {
    std::shared_ptr<OrbPerix::IInputProvider> provider;
    std::atomic<bool> releasing{false};
    std::atomic<bool> listenerDone{false};
    int disconnectResult = -100;
};
ReentrantCase* g_reentrant = nullptr;

int DisconnectingListener(DeviceChangeInfo*) {
    ReentrantCase& c = *g_reentrant;
    WaitFor(c.releasing);
    PERIXInfo other = MakeInfo("peer-two");
    c.disconnectResult = c.provider->DisconnectDevice(&other);
    c.provider->DeInit();
    c.listenerDone = true;
    return 0;
}

void MarkReleasing(void* context, void*) {
    static_cast<ReentrantCase*>(context)->releasing = true;
}

TEST_F(HostSafety, ListenerDisconnectsFromInsideANotificationWhileReleaseWaitsForIt) {
    ReentrantCase c;
    c.provider = provider;
    g_reentrant = &c;
    ASSERT_EQ(0, provider->Init());
    initialised = true;
    listener = ProviderListener{};
    listener.onDeviceChange = &DisconnectingListener;
    PERIXInfo one = MakeInfo("peer-one");
    PERIXInfo two = MakeInfo("peer-two");
    const int liveBefore = perix_sim_live_handle_count();
    ASSERT_EQ(0, provider->RegisterPERIXListener(&one, &listener));
    void* handleOne = perix_sim_last_handle();
    ASSERT_EQ(0, provider->RegisterPERIXListener(&two, &listener));
    ASSERT_EQ(0, perix_sim_peer_post_device_change(handleOne, "peer-one", 1, 0));
    std::this_thread::sleep_for(std::chrono::milliseconds(30));  // the listener is running
    perix_sim_set_release_hook(&MarkReleasing, &c);
    PERIXInfo again = MakeInfo("peer-one");
    EXPECT_EQ(0, provider->DisconnectDevice(&again));  // the engine waits for the listener
    perix_sim_peer_flush();
    EXPECT_TRUE(c.listenerDone.load());
    EXPECT_EQ(0, c.disconnectResult);
    EXPECT_EQ(0, perix_sim_violation_count());
    EXPECT_EQ(liveBefore, perix_sim_live_handle_count()) << "both handles released once";
    perix_sim_set_release_hook(nullptr, nullptr);
    g_reentrant = nullptr;
}

// 4: a C call still inside the engine when its provider was destroyed and the engine finalised
// returned into unmapped code; destroy returned before the provider was destroyed.
TEST_F(HostSafety, CDestroyAndFinalizeWaitForTheCallStillInsideTheEngine) {
    const uint64_t sink = orbperix_create_sink_provider();
    ASSERT_NE(0u, sink);
    ASSERT_EQ(0, orbperix_sink_init(sink));
    orbperix_device_info device{};
    std::strcpy(device.peer_device_id, "peer-c");
    device.server_port = 5;
    device.connect_type = 1;
    ASSERT_EQ(0, orbperix_sink_connect_device(sink, &device));
    perix_sim_set_slot_delay(PERIX_SIM_MAIN, 8, 200);  // PERIXGetConnectionStatus
    static std::atomic<bool> inEngine;
    inEngine = false;
    perix_sim_set_call_hook(
        [](void*, int table, int slot, void*) {
            if (table == PERIX_SIM_MAIN && slot == 8) {
                inEngine = true;
            }
        },
        nullptr);
    std::atomic<bool> started{false};
    int status = -100;
    std::thread caller([&] {
        started = true;
        status = orbperix_sink_get_connection_status(sink);
    });
    ASSERT_TRUE(WaitFor(started));
    ASSERT_TRUE(WaitFor(inEngine)) << "the call reached the engine";
    EXPECT_EQ(1, orbperix_destroy_sink_provider(sink));
    EXPECT_EQ(0, perix_sim_calls_in_flight())
        << "destroy returned while the call was still in the engine";
    orbperix_finalize();
    caller.join();
    perix_sim_set_call_hook(nullptr, nullptr);
    EXPECT_EQ(0, status);
    EXPECT_EQ(0, perix_sim_engine_mapped());
    EXPECT_EQ(ORBPERIX_C_BAD_HANDLE, orbperix_sink_get_connection_status(sink));
}

int g_cDeviceChanges = 0;
void CountChange(void*, const orbperix_device_change*) { ++g_cDeviceChanges; }

// Also: deinit of one C provider dropped every C listener route while the C++ sessions stayed.
TEST_F(HostSafety, CListenersLiveExactlyAsLongAsTheirSessions) {
    g_cDeviceChanges = 0;
    const uint64_t a = orbperix_create_input_provider();
    ASSERT_EQ(0, orbperix_input_init(a));
    orbperix_device_info peer{};
    std::strcpy(peer.peer_device_id, "peer-route");
    peer.connect_type = 1;
    orbperix_listener c{};
    c.on_device_change = &CountChange;
    ASSERT_EQ(0, orbperix_input_register_listener(a, &peer, &c, nullptr));
    void* handle = perix_sim_last_handle();
    const uint64_t b = orbperix_create_input_provider();  // clears the shared running flag
    ASSERT_EQ(0, orbperix_input_deinit(b));               // so this tears nothing down
    PerixDeviceChangeNotify change{"peer-route", 10, 1, 2};
    ASSERT_EQ(0, perix_sim_fire_device_change(handle, &change));
    EXPECT_EQ(1, g_cDeviceChanges) << "the session and its C listener are still there";
    ASSERT_EQ(0, orbperix_input_disconnect_device(a, &peer));
    ASSERT_EQ(0, perix_sim_fire_device_change(handle, &change));
    EXPECT_EQ(1, g_cDeviceChanges) << "gone with its session";
    EXPECT_EQ(1, orbperix_destroy_input_provider(b));
    EXPECT_EQ(1, orbperix_destroy_input_provider(a));
}

// A notification on another thread that found its C listener before the de-init: the host's
// wait returns only once that call has returned, so the host may then free its user_data.
// From inside a listener the wait does not wait for its own call.
struct BlockingButton {
    std::atomic<bool> entered{false};
    std::atomic<bool> release{false};
    std::atomic<bool> returned{false};
    int ownWait = -100;
};

void BlockOnButton(void* user_data, const orbperix_service*, const orbperix_button_notify*) {
    auto* state = static_cast<BlockingButton*>(user_data);
    if (state->returned.load()) {  // the second delivery, on the test's own thread
        state->ownWait = orbperix_wait_for_listeners(2000);
        return;
    }
    state->entered = true;
    WaitFor(state->release, 10000);
    state->returned = true;
}

TEST_F(HostSafety, CWaitForListenersOutlastsACallThatFoundItsListenerBeforeTheDeinit) {
    BlockingButton state;
    const uint64_t cProvider = orbperix_create_input_provider();
    ASSERT_EQ(0, orbperix_input_init(cProvider));
    orbperix_device_info peer{};
    std::strcpy(peer.peer_device_id, "peer-wait");
    peer.connect_type = 1;
    orbperix_listener c{};
    c.on_button = &BlockOnButton;
    ASSERT_EQ(0, orbperix_input_register_listener(cProvider, &peer, &c, &state));
    const PerixButtonIdentity identity{"peer-wait", 9, "svc", 3};
    PerixButtonNotify notify{1, 2, 0, 0, nullptr};
    std::thread engineThread([&] { perix_sim_fire_button(&identity, &notify); });
    ASSERT_TRUE(WaitFor(state.entered));
    ASSERT_EQ(0, orbperix_input_deinit(cProvider));  // forgets the listener; the call goes on
    std::atomic<bool> waited{false};
    int waitResult = -100;
    std::thread host([&] {
        waitResult = orbperix_wait_for_listeners(10000);
        waited = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(waited.load()) << "the wait returned while the listener was still running";
    state.release = true;
    host.join();
    engineThread.join();
    EXPECT_EQ(0, waitResult);
    EXPECT_TRUE(state.returned.load());

    ASSERT_EQ(0, orbperix_input_init(cProvider));
    ASSERT_EQ(0, orbperix_input_register_listener(cProvider, &peer, &c, &state));
    EXPECT_EQ(0, perix_sim_fire_button(&identity, &notify));
    EXPECT_EQ(0, state.ownWait) << "a listener's own call is not waited for";
    EXPECT_EQ(0, orbperix_input_deinit(cProvider));
    EXPECT_EQ(1, orbperix_destroy_input_provider(cProvider));
}

// The wait for callbacks under way, below the C layer: it waits for a callback that started
// before it (counted once however deeply it nests), and is not held up by callbacks that keep
// starting on another thread afterwards.
TEST(CallbackWait, WaitsForTheCallbacksUnderWayAndNotForLaterOnes) {
    // A live load, so that the gate chooses its announcement scheme as under a real engine.
    ASSERT_TRUE(OrbPerix::engine::Reserve());
    OrbPerix::engine::Publish(OrbPERIXHandler{}, ButtonHandlerSource{}, AudioHandlerSource{},
                              RefreshHandlerSource{});
    std::atomic<bool> entered{false};
    std::atomic<bool> innerDone{false};
    std::atomic<bool> release{false};
    std::thread held([&] {
        OrbPerix::engine::CallbackScope outer;
        {
            OrbPerix::engine::CallbackScope inner;
        }
        innerDone = true;
        entered = true;
        WaitFor(release, 10000);
    });
    ASSERT_TRUE(WaitFor(entered));
    ASSERT_TRUE(innerDone.load());
    std::atomic<bool> stop{false};
    std::atomic<uint64_t> later{0};
    std::thread stream([&] {
        while (!stop.load()) {
            OrbPerix::engine::CallbackScope scope;
            later.fetch_add(1);
            std::this_thread::yield();
        }
    });
    EXPECT_FALSE(OrbPerix::engine::WaitForCallbacks(50)) << "the held callback still runs";
    release = true;
    held.join();
    EXPECT_TRUE(OrbPerix::engine::WaitForCallbacks(5000));
    stop = true;
    stream.join();
    EXPECT_GT(later.load(), 0u);
    {
        OrbPerix::engine::CallbackScope own;
        EXPECT_TRUE(OrbPerix::engine::WaitForCallbacks(50)) << "the caller's own callback";
    }
}

}  // namespace
