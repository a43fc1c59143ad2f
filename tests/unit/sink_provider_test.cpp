// The sink provider against the simulated engine: its life, every result code and the
// trace-id text of the connection status.
#include <memory>
#include <string>
#include <vector>

#include "engine_fixture.h"
#include "engine/engine_gate.h"
#include "provider/sink_provider.h"
#include "provider_tables.h"

namespace {

std::string Scoped(const std::string& message, const char* operation) {
    return message + "(OrbPerix::SinkProvider::" + operation + ")";
}

std::vector<LogLine> OneLine(int level, const std::string& text) {
    return std::vector<LogLine>{LogLine{level, text}};
}

class SinkProviderTest : public EngineTest {
protected:
    void SetUp() override {
        EngineTest::SetUp();
        sink = std::make_shared<OrbPerix::SinkProvider>(LiveEngineLoad());
        info = PERIXInfo{};
        std::snprintf(info.peerDeviceId, sizeof(info.peerDeviceId), "%s", "peer-sink");
        info.serverPort = 7000;
        info.connectType = 1;
    }
    std::shared_ptr<OrbPerix::ISinkProvider> sink;
    PERIXInfo info{};
};

TEST_F(SinkProviderTest, LifeCreatesOneHandleStartsReleasesOnDeInit) {
    ASSERT_EQ(0, sink->Init());
    ASSERT_EQ(0, sink->ConnectDevice(&info));
    void* handle = perix_sim_last_handle();
    ASSERT_NE(nullptr, handle);
    EXPECT_EQ(0, sink->GetConnectionStatus());
    int type = 0;
    EXPECT_EQ(0, sink->RegisterEngineCallback(5, &type));
    EXPECT_EQ(0, sink->SendByHandler(&type, nullptr, &info));
    sink->DeInit();
    sink->DeInit();
    EXPECT_EQ((std::vector<std::string>{"main.PERIXCreateServiceHandle", "main.PERIXStartService",
                                        "main.PERIXGetConnectionStatus",
                                        "main.PERIXRegisterCallback", "main.PERIXPassThrough",
                                        "main.PERIXReleaseServiceHandle"}),
              EngineCallNames())
        << "the second DeInit releases nothing";
    const uint64_t h = reinterpret_cast<uintptr_t>(handle);
    for (int slot : {6, 8, 7, 9, 5}) {
        EXPECT_EQ(h, EngineCalls(PERIX_SIM_MAIN, slot).at(0).args[0])
            << "the Mesh handle goes first, slot " << slot;
    }
    EXPECT_EQ(0u, EngineCalls(PERIX_SIM_MAIN, 5).at(0).args[1])
        << "DeInit passes nothing behind the handle";
    const perix_sim_call registered = EngineCalls(PERIX_SIM_MAIN, 7).at(0);
    EXPECT_EQ(5u, registered.values[0]);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(&type), registered.args[2]);
    const perix_sim_call passed = EngineCalls(PERIX_SIM_MAIN, 9).at(0);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(&type), passed.args[1]);
    EXPECT_EQ(0u, passed.args[2]);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(&info), passed.args[3]);
}

// The strict engine frees the handle in the disconnect's release and aborts the test on any
// later call that passes it.
TEST_F(SinkProviderTest, DisconnectReleasesTheHandleAndNoLaterOperationPassesIt) {
    ASSERT_EQ(0, sink->Init());
    ASSERT_EQ(0, sink->ConnectDevice(&info));
    const uint64_t h = reinterpret_cast<uintptr_t>(perix_sim_last_handle());
    int arg = 0;
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 5, 31);
    EXPECT_EQ(31, sink->DisconnectDevice(&info, &arg)) << "engine status passed back";
    const perix_sim_call release = EngineCalls(PERIX_SIM_MAIN, 5).at(0);
    EXPECT_EQ(h, release.args[0]);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(&info), release.args[1]) << "disconnect forwards";
    EXPECT_EQ(reinterpret_cast<uintptr_t>(&arg), release.args[2]);
    perix_sim_clear_calls();
    ClearLogs();

    const std::string released = "Mesh provider released by DisconnectDevice, not passed to the engine";
    EXPECT_EQ(-13, sink->GetConnectionStatus());
    EXPECT_EQ(-13, sink->RegisterEngineCallback(5, &arg));
    EXPECT_EQ(-13, sink->SendByHandler(&arg, nullptr, nullptr));
    EXPECT_EQ(-13, sink->ConnectDevice(&info)) << "the kept handle cannot be started again";
    EXPECT_EQ(0, sink->CreateMeshProvider(&info)) << "the sink still has its Mesh provider";
    EXPECT_EQ(-13, sink->DisconnectDevice(&info, &arg)) << "released once, never twice";
    sink->DeInit();
    EXPECT_TRUE(EngineCallNames().empty());
    EXPECT_EQ((std::vector<LogLine>{
                  {3, Scoped("Get connection status ret: -13", "GetConnectionStatus")},
                  {4, Scoped(released, "RegisterEngineCallback")},
                  {4, Scoped(released, "SendByHandler")},
                  {3, Scoped("MeshProvider already exist", "CreateMeshProvider")},
                  {4, Scoped(released, "ConnectDevice")},
                  {3, Scoped("MeshProvider already exist", "CreateMeshProvider")},
                  {4, Scoped("PERIXCreateServiceHandle fail", "DisconnectDevice")}}),
              TraceLines());

    // After DeInit the sink starts over with a new handle.
    ASSERT_EQ(0, sink->Init());
    EXPECT_EQ(0, sink->ConnectDevice(&info));
    EXPECT_EQ(1, perix_sim_count_calls(PERIX_SIM_MAIN, 4));
    EXPECT_EQ(0, sink->GetConnectionStatus());
    sink->DeInit();
    EXPECT_EQ(0, perix_sim_violation_count());
}

TEST_F(SinkProviderTest, SecondConnectKeepsTheMeshHandleAndSaysSo) {
    ASSERT_EQ(0, sink->ConnectDevice(&info));
    ClearLogs();
    EXPECT_EQ(0, sink->ConnectDevice(&info));
    EXPECT_EQ(1, perix_sim_count_calls(PERIX_SIM_MAIN, 4));
    EXPECT_EQ(2, perix_sim_count_calls(PERIX_SIM_MAIN, 6));
    EXPECT_EQ(OneLine(3, Scoped("MeshProvider already exist",
                                                     "CreateMeshProvider")),
              TraceLines());
}

TEST_F(SinkProviderTest, PortZeroIsRefusedOnlyAfterTheEngineStartedTheService) {
    info.serverPort = 0;
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 6, 77);
    EXPECT_EQ(-5, sink->ConnectDevice(&info)) << "-5 whatever the engine said";
    EXPECT_EQ((std::vector<std::string>{"main.PERIXCreateServiceHandle",
                                        "main.PERIXStartService"}),
              EngineCallNames());
    EXPECT_EQ(OneLine(4, Scoped("PERIXInfo serverport is 0",
                                                     "ConnectDevice")),
              TraceLines());
}

TEST_F(SinkProviderTest, EngineStatusOfStartServiceIsPassedBack) {
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 6, 0x1234);
    EXPECT_EQ(0x1234, sink->ConnectDevice(&info));
    EXPECT_TRUE(TraceLines().empty());
}

TEST_F(SinkProviderTest, NullRecordGoesToTheEngineAndItsStatusComesBack) {
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 6, 9);
    EXPECT_EQ(9, sink->ConnectDevice(nullptr));
    const perix_sim_call start = EngineCalls(PERIX_SIM_MAIN, 6).at(0);
    EXPECT_EQ(0u, start.args[1]);
    EXPECT_EQ(0u, EngineCalls(PERIX_SIM_MAIN, 4).at(0).args[0]);
}

TEST_F(SinkProviderTest, NoHandleFromTheEngineFailsCreateAndConnectWithMinus13) {
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 4, 0);
    EXPECT_EQ(-13, sink->CreateMeshProvider(&info));
    EXPECT_EQ(-13, sink->ConnectDevice(&info));
    EXPECT_EQ(0, perix_sim_count_calls(PERIX_SIM_MAIN, 6)) << "no start without a handle";
    EXPECT_EQ((std::vector<LogLine>{
                  {4, Scoped("PERIXCreateServiceHandle fail", "CreateMeshProvider")},
                  {4, Scoped("PERIXCreateServiceHandle fail", "CreateMeshProvider")},
                  {4, Scoped("PERIXCreateServiceHandle fail", "ConnectDevice")}}),
              TraceLines());
}

TEST_F(SinkProviderTest, DisconnectBeforeConnectIsMinus13WithTheCreationMessage) {
    EXPECT_EQ(-13, sink->DisconnectDevice(&info, nullptr));
    EXPECT_TRUE(EngineCallNames().empty());
    EXPECT_EQ(OneLine(4, Scoped("PERIXCreateServiceHandle fail",
                                                     "DisconnectDevice")),
              TraceLines());
}

TEST_F(SinkProviderTest, DeInitWithoutInitDoesNotReleaseTheHandle) {
    ASSERT_EQ(0, sink->ConnectDevice(&info));
    perix_sim_clear_calls();
    sink->DeInit();
    EXPECT_TRUE(EngineCallNames().empty());
    ASSERT_EQ(0, sink->Init());
    sink->DeInit();
    EXPECT_EQ(std::vector<std::string>{"main.PERIXReleaseServiceHandle"}, EngineCallNames());
}

TEST_F(SinkProviderTest, ConnectionStatusLogsTheTraceIdOnlyWhenNonZero) {
    ASSERT_EQ(0, sink->ConnectDevice(&info));
    const char* const kOp = "GetConnectionStatus";
    struct Case {
        uint64_t traceId;
        std::vector<LogLine> lines;
    };
    const Case cases[] = {
        {0, {{3, Scoped("Get connection status ret: 0", kOp)}}},
        {0x0A, {{4, Scoped("traceId: 0a", kOp)}, {3, Scoped("Get connection status ret: 0", kOp)}}},
        {0x1ABC,
         {{4, Scoped("traceId: 1abc", kOp)}, {3, Scoped("Get connection status ret: 0", kOp)}}},
        {0xABCDEF0123456789ull,
         {{4, Scoped("traceId: abcdef0123456789", kOp)},
          {3, Scoped("Get connection status ret: 0", kOp)}}},
    };
    for (const Case& c : cases) {
        ClearLogs();
        perix_sim_set_trace_id(c.traceId);
        EXPECT_EQ(0, sink->GetConnectionStatus());
        EXPECT_EQ(c.lines, TraceLines()) << "trace id " << c.traceId;
    }
}

TEST_F(SinkProviderTest, FailedConnectionStatusLogsOnlyItsResult) {
    perix_sim_set_trace_id(0x55);
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 8, -21);
    EXPECT_EQ(-21, sink->GetConnectionStatus()) << "no handle is needed to ask";
    EXPECT_EQ(0u, EngineCalls(PERIX_SIM_MAIN, 8).at(0).args[0]);
    EXPECT_EQ(OneLine(3, Scoped("Get connection status ret: -21",
                                                     "GetConnectionStatus")),
              TraceLines());
}

// A sink whose own CreateMeshProvider refuses: ConnectDevice goes through the object's table.
class RefusingSink : public OrbPerix::SinkProvider {
public:
    using SinkProvider::SinkProvider;
    int CreateMeshProvider(PERIXInfo*) override { return 1; }
};

TEST_F(SinkProviderTest, ConnectAsksTheObjectsOwnCreateMeshProvider) {
    RefusingSink refusing(LiveEngineLoad());
    EXPECT_EQ(-13, refusing.ConnectDevice(&info));
    EXPECT_TRUE(EngineCallNames().empty());
    EXPECT_EQ(OneLine(4, Scoped("PERIXCreateServiceHandle fail",
                                                     "ConnectDevice")),
              TraceLines());
}

TEST_F(SinkProviderTest, ASinkWithoutEngineEntriesReportsMinus13InsteadOfCrashing) {
    // What the registry hands a sink created before the engine was bound.
    OrbPerix::SinkProvider unbound(OrbPerix::engine::NoEngine());
    EXPECT_EQ(-13, unbound.ConnectDevice(&info));
    EXPECT_EQ(-13, unbound.GetConnectionStatus());
    EXPECT_EQ(-13, unbound.RegisterEngineCallback(1, nullptr));
    EXPECT_EQ(-13, unbound.SendByHandler(nullptr, nullptr, nullptr));
}

}  // namespace
