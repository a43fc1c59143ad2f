// The input provider's sessions, connection and services through the manager and the simulated
// engine: every refusal with its result and line, and the engine calls of the good paths.
#include "input_test_helpers.h"

namespace {

using namespace input_test;
using InputSession = InputTest;

TEST_F(InputSession, APeersWholeLifeRegisterConnectOpenPostNotifyDisconnectReRegister) {
    ConnectAndOpen("peer-a");
    RemoteCtrlEvent mouse = Event(6, 0);
    ServiceInfo service = ButtonService("peer-a");
    ASSERT_EQ(0, provider->PostRemoteCtrlEvent(&service, &mouse));
    ASSERT_EQ(1, perix_sim_peer_packet_count());
    perix_sim_packet packet{};
    ASSERT_EQ(0, perix_sim_peer_get_packet(0, &packet));
    EXPECT_EQ(1, packet.decoded) << packet.description;
    EXPECT_EQ(6u, packet.type);
    EXPECT_STREQ("btn-1", packet.service_id);
    {
        std::lock_guard<std::mutex> lock(seen().mutex);
        ASSERT_EQ(1u, seen().buttons.size()) << "the peer reported the channel open";
        EXPECT_EQ(1u, seen().buttons[0].word0);
        EXPECT_EQ(6u, seen().buttons[0].service.serviceType);
    }
    PERIXInfo info = MakeInfo("peer-a");
    EXPECT_EQ(0, provider->DisconnectDevice(&info));
    EXPECT_EQ(-4, provider->PostRemoteCtrlEvent(&service, &mouse)) << "session gone";
    EXPECT_EQ(-4, provider->ConnectDevice(&info)) << "disconnect destroyed the handler";
    ASSERT_EQ(0, provider->RegisterPERIXListener(&info, &listener));
    EXPECT_EQ(0, provider->ConnectDevice(&info));
    EXPECT_EQ(2u, EngineCalls(PERIX_SIM_MAIN, 4).size());
    EXPECT_EQ(1u, EngineCalls(PERIX_SIM_MAIN, 5).size());
}

TEST_F(InputSession, RegisterCallsCreateThenListenerThenButtonCallbackAndConnectStartsTheService) {
    Connect("peer-a");
    EXPECT_EQ((std::vector<std::string>{"main.PERIXCreateServiceHandle", "main.PERIXRegisterListener",
                                        "button.RegisterCallback", "main.PERIXStartService"}),
              EngineCallNames());
    const perix_sim_call start = EngineCalls(PERIX_SIM_MAIN, 6).at(0);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(perix_sim_last_handle()), start.args[0]);
    EXPECT_STREQ("peer-a", start.text);
    EXPECT_EQ(7000u, start.values[0]);
    EXPECT_TRUE(TraceLines().empty());
}

TEST_F(InputSession, RegisterRefusals) {
    PERIXInfo info = MakeInfo("peer-a");
    EXPECT_EQ(-4, provider->RegisterPERIXListener(&info, &listener)) << "before Init";
    ASSERT_EQ(0, provider->Init());
    initialised = true;
    EXPECT_EQ(-4, provider->RegisterPERIXListener(&info, nullptr));
    EXPECT_EQ(2, CountTraceLines(Line("Please initialize InputProvider first", "RegisterPERIXListener")));
    EXPECT_TRUE(EngineCallNames().empty());

    ClearLogs();
    PERIXInfo bad = MakeInfo("peer-a", -1);
    EXPECT_EQ(-13, provider->RegisterPERIXListener(&bad, &listener));
    EXPECT_TRUE(HasTraceLine(Line("Invalid para: deviceInfo is invalid", "CreateServiceHandler")));
    EXPECT_TRUE(HasTraceLine(Line("CreateServiceHandler fail", "RegisterPERIXListener")));

    ClearLogs();
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 4, 0);  // no handle
    EXPECT_EQ(-13, provider->RegisterPERIXListener(&info, &listener));
    EXPECT_TRUE(HasTraceLine(Line("PERIXCreateServiceHandle fail", "CreateServiceHandler")));
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 4, 1);

    ClearLogs();
    ASSERT_EQ(0, provider->RegisterPERIXListener(&info, &listener));
    EXPECT_EQ(-13, provider->RegisterPERIXListener(&info, &listener));
    EXPECT_EQ((std::vector<LogLine>{
                  {4, Line("device already created serviceHandler.", "CreateServiceHandler")},
                  {4, Line("CreateServiceHandler fail", "RegisterPERIXListener")}}),
              TraceLines());

    PERIXInfo other = MakeInfo("peer-b");
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 14, 51);
    ClearLogs();
    EXPECT_EQ(51, provider->RegisterPERIXListener(&other, &listener));
    EXPECT_TRUE(HasTraceLine(Line("RegisterPERIXListener failed: 51", "RegisterPERIXListener")));
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 14, 0);
    perix_sim_set_slot_result(PERIX_SIM_BUTTON, 0, 52);
    PERIXInfo third = MakeInfo("peer-c");
    ClearLogs();
    EXPECT_EQ(52, provider->RegisterPERIXListener(&third, &listener));
    EXPECT_EQ((std::vector<LogLine>{
                  {4, Line("Register buttonHandler RegisterCallback failed: 52", "RegisterPERIXListener")}}),
              TraceLines());
}

TEST_F(InputSession, ConnectRefusals) {
    ASSERT_EQ(0, provider->Init());
    PERIXInfo info = MakeInfo("peer-a");
    EXPECT_EQ(-2, provider->ConnectDevice(nullptr));
    EXPECT_TRUE(HasTraceLine(Line("Invalid para: deviceInfo is invalid", "ConnectDevice")));
    EXPECT_EQ(-4, provider->ConnectDevice(&info));
    EXPECT_TRUE(HasTraceLine(Line("connInfo is null, Please RegisterPERIXListener first", "ConnectDevice")));
    ASSERT_EQ(0, provider->RegisterPERIXListener(&info, &listener));
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 6, 77);
    ClearLogs();
    EXPECT_EQ(77, provider->ConnectDevice(&info));
    EXPECT_EQ((std::vector<LogLine>{{4, Line("PERIXStartService failed with ret 77", "ConnectDevice")}}),
              TraceLines());
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 6, 0);
    EXPECT_EQ(0, provider->ConnectDevice(&info)) << "a failed start leaves the peer unconnected";
    perix_sim_clear_calls();
    ClearLogs();
    EXPECT_EQ(-4, provider->ConnectDevice(&info));
    EXPECT_EQ((std::vector<LogLine>{{4, Line("device already connected", "ConnectDevice")}}), TraceLines());
    EXPECT_TRUE(EngineCallNames().empty());
}

TEST_F(InputSession, DisconnectRefusalsAndRelease) {
    EXPECT_EQ(-2, provider->DisconnectDevice(nullptr));
    PERIXInfo info = MakeInfo("peer-a");
    EXPECT_EQ(-4, provider->DisconnectDevice(&info));
    EXPECT_EQ((std::vector<LogLine>{{4, Line("Invalid para: deviceInfo Invalid", "DisconnectDevice")},
                                    {4, Line("DisconnectDevice, device not connected.", "DisconnectDevice")}}),
              TraceLines());
    Connect("peer-a");
    void* handle = perix_sim_last_handle();
    perix_sim_clear_calls();
    EXPECT_EQ(0, provider->DisconnectDevice(&info));
    ASSERT_EQ(1u, EngineCalls(PERIX_SIM_MAIN, 5).size());
    EXPECT_EQ(reinterpret_cast<uintptr_t>(handle), EngineCalls(PERIX_SIM_MAIN, 5)[0].args[0]);
    EXPECT_EQ(-4, provider->DisconnectDevice(&info));
}

TEST_F(InputSession, ListenerAndDataListenerOperations) {
    PERIXInfo info = MakeInfo("peer-a");
    const std::string peer = "peer-a";
    EXPECT_EQ(-4, provider->UnRegisterListener(&info));
    EXPECT_EQ(-2, provider->RegisterDataListener(nullptr, 1, nullptr));
    EXPECT_EQ(-4, provider->RegisterDataListener(&peer, 1, nullptr));
    EXPECT_EQ(-2, provider->UnRegisterDataListener(nullptr, 1));
    EXPECT_EQ(-4, provider->UnRegisterDataListener(&peer, 1));
    provider->RegisterEventCallback(peer, 3, nullptr);
    EXPECT_EQ((std::vector<LogLine>{
                  {4, Line("connInfo is null, Please RegisterPERIXListener first", "UnRegisterListener")},
                  {4, Line("RegisterDataListener device is null", "RegisterDataListener")},
                  {4, Line("serviceHandler is null, please ConnectDevice first.", "RegisterDataListener")},
                  {4, Line("UnRegisterDataListener device is null", "UnRegisterDataListener")},
                  {4, Line("serviceHandler is null, please ConnectDevice first.", "UnRegisterDataListener")},
                  {4, Line("RegisterEventCallback failed, Please Connect device first.", "RegisterEventCallback")}}),
              TraceLines());
    EXPECT_TRUE(EngineCallNames().empty());

    Connect("peer-a");
    perix_sim_clear_calls();
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 7, 99);
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 15, 33);
    EXPECT_EQ(0, provider->RegisterDataListener(&peer, 5, nullptr)) << "engine result ignored";
    EXPECT_EQ(0, provider->UnRegisterDataListener(&peer, 5));
    provider->RegisterEventCallback(peer, 9, nullptr);
    EXPECT_EQ(33, provider->UnRegisterListener(&info));
    EXPECT_EQ((std::vector<std::string>{"main.PERIXRegisterCallback", "main.PERIXRegisterCallback",
                                        "main.PERIXUnRegisterListener"}),
              EngineCallNames());
    EXPECT_EQ(5u, EngineCalls(PERIX_SIM_MAIN, 7)[0].values[0]);
    EXPECT_EQ(9u, EngineCalls(PERIX_SIM_MAIN, 7)[1].values[0]);
}

TEST_F(InputSession, BinaryDataIsSentAsACopyAndRefusalsLog) {
    const std::string peer = "peer-a";
    uint8_t bytes[] = {'h', 'e', 'l', 'l', 'o'};
    BinaryData data{1, 2, bytes, 5};
    provider->SendBinaryData(nullptr, &data);
    provider->SendBinaryData(&peer, nullptr);
    EXPECT_EQ(0, provider->SendDataNoResult(&peer, &data)) << "0 even when nothing was sent";
    EXPECT_EQ((std::vector<LogLine>{
                  {4, Line("SendBinaryData param invalid", "SendBinaryData")},
                  {4, Line("SendBinaryData param invalid", "SendBinaryData")},
                  {4, Line("serviceHandler is null, please ConnectDevice first.", "SendBinaryData")}}),
              TraceLines());
    Connect("peer-a");
    ClearLogs();
    BinaryData empty{1, 2, bytes, 0};
    provider->SendBinaryData(&peer, &empty);
    EXPECT_EQ((std::vector<LogLine>{{4, Line("SendBinaryData, data len invalid.", "SendBinaryData")}}),
              TraceLines());
    perix_sim_clear_calls();
    EXPECT_EQ(0, provider->SendData(&peer, &data));
    const std::vector<perix_sim_call> sent = EngineCalls(PERIX_SIM_MAIN, 16);
    ASSERT_EQ(1u, sent.size());
    EXPECT_STREQ("hello", sent[0].text);
    EXPECT_NE(reinterpret_cast<uintptr_t>(bytes), sent[0].args[2]) << "a copy goes to the engine";
    EXPECT_EQ(1u, sent[0].values[0]);
    EXPECT_EQ(5u, sent[0].values[2]);
}

TEST_F(InputSession, DeviceServicesStartAndStop) {
    ServiceInfo service{"peer-a", "svc-9", 3};
    ServiceInfo noDevice{"", "svc-9", 3};
    EXPECT_EQ(-2, provider->StartDeviceService(nullptr, nullptr));
    EXPECT_EQ(-2, provider->StartDeviceService(&noDevice, nullptr));
    EXPECT_EQ(-4, provider->StartDeviceService(&service, nullptr));
    const size_t before = TraceLines().size();
    EXPECT_EQ(-2, provider->StopDeviceService(&noDevice));
    EXPECT_EQ(-2, provider->StopDeviceService(nullptr));
    EXPECT_EQ(before, TraceLines().size()) << "StopDeviceService refuses silently";
    EXPECT_EQ(-4, provider->StopDeviceService(&service));
    EXPECT_EQ((std::vector<LogLine>{
                  {4, Line("StartDeviceService failed,service or deviceId is null.", "StartDeviceService")},
                  {4, Line("StartDeviceService failed,service or deviceId is null.", "StartDeviceService")},
                  {4, Line("StartDeviceService failed,serviceHandler is null.", "StartDeviceService")},
                  {4, Line("serviceHandler is null, Please Connect device first.", "StopDeviceService")}}),
              TraceLines());

    Connect("peer-a");
    perix_sim_clear_calls();
    ClearLogs();
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 12, 41);
    EXPECT_EQ(41, provider->StartDeviceService(&service, nullptr)) << "enable's result returned";
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 11, 42);
    EXPECT_EQ(42, provider->StopDeviceService(&service)) << "remove's result returned";
    EXPECT_EQ((std::vector<std::string>{"main.PERIXAddVirtualService", "main.PERIXEnableVirtualService",
                                        "main.PERIXDisableVirtualService", "main.PERIXRemoveVirtualService"}),
              EngineCallNames());
    EXPECT_STREQ("svc-9", EngineCalls(PERIX_SIM_MAIN, 10)[0].text);
    EXPECT_EQ(3u, EngineCalls(PERIX_SIM_MAIN, 10)[0].values[1]);
    EXPECT_TRUE(TraceLines().empty());

    perix_sim_set_slot_result(PERIX_SIM_MAIN, 10, 43);
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 13, 44);
    perix_sim_clear_calls();
    EXPECT_EQ(43, provider->StartDeviceService(&service, nullptr));
    EXPECT_EQ(44, provider->StopDeviceService(&service));
    EXPECT_EQ((std::vector<std::string>{"main.PERIXAddVirtualService", "main.PERIXDisableVirtualService"}),
              EngineCallNames());
    EXPECT_EQ((std::vector<LogLine>{
                  {4, Line("PERIXAddVirtualService failed with ret=43", "StartDeviceService")},
                  {4, Line("PERIXDisableVirtualService failed with ret=44", "StopDeviceService")}}),
              TraceLines());
}

TEST_F(InputSession, SendByHandlerPassesTheLatestHandle) {
    int a = 0, b = 0, c = 0;
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 9, 5);
    EXPECT_EQ(5, provider->SendByHandler(&a, &b, &c));
    EXPECT_EQ(0u, EngineCalls(PERIX_SIM_MAIN, 9).at(0).args[0]) << "no handle yet";
    Connect("peer-a");
    provider->SendByHandler(&a, &b, &c);
    const perix_sim_call call = EngineCalls(PERIX_SIM_MAIN, 9).at(1);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(perix_sim_last_handle()), call.args[0]);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(&c), call.args[3]);
}

TEST_F(InputSession, DeInitReleasesEverySessionInKeyOrderOnceAndDropsThem) {
    Connect("peer-b");
    void* b = perix_sim_last_handle();
    Connect("peer-a");
    void* a = perix_sim_last_handle();
    perix_sim_clear_calls();
    provider->DeInit();
    provider->DeInit();
    const std::vector<perix_sim_call> released = EngineCalls(PERIX_SIM_MAIN, 5);
    ASSERT_EQ(2u, released.size());
    EXPECT_EQ(reinterpret_cast<uintptr_t>(a), released[0].args[0]);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(b), released[1].args[0]);
    PERIXInfo info = MakeInfo("peer-a");
    EXPECT_EQ(-4, provider->DisconnectDevice(&info));
    EXPECT_EQ(-4, provider->RegisterPERIXListener(&info, &listener)) << "no longer initialised";
}

}  // namespace
