// The providers' shared code: the device-record check and the forwarding of engine
// notifications to host listeners as private copies (through the input provider's
// registered callbacks, fired by the simulated engine).
#include <cstring>

#include "input_test_helpers.h"
#include "provider/provider_common.h"
#include "provider/session_store.h"

namespace {

using namespace input_test;
using OrbPerix::CheckPerixInfo;
using OrbPerix::ForwardDataReceive;
using OrbPerix::ForwardDeviceChange;
using OrbPerix::ForwardServiceChange;

const std::string kCheckScope = "OrbPerix::BaseProvider::CheckPerixInfoInner";

std::string BaseLine(const std::string& message, const std::string& operation) {
    return Line(message, operation, "BaseProvider");
}

TEST(CheckPerixInfo, EmptyIdentifiersWithPortZeroAndTypeOneAreValid) {
    ClearLogs();
    PERIXInfo info;
    std::memset(&info, 0, sizeof(info));
    info.serverPort = 0;
    info.connectType = 1;
    EXPECT_EQ(0, CheckPerixInfo(&info));
    EXPECT_TRUE(TraceLines().empty());
}

TEST(CheckPerixInfo, NullNegativePortAndZeroConnectTypeAreRefused) {
    ClearLogs();
    EXPECT_EQ(-2, CheckPerixInfo(nullptr));
    PERIXInfo negativePort = MakeInfo("peer", -1, 1);
    EXPECT_EQ(-2, CheckPerixInfo(&negativePort));
    PERIXInfo zeroType = MakeInfo("peer", 1, 0);
    EXPECT_EQ(-2, CheckPerixInfo(&zeroType));
    const std::string bad = "Invalid para: serverPort is invalid or connectType is invalid";
    EXPECT_EQ((std::vector<LogLine>{
                  {4, BaseLine("Invalid para: deviceInfo is null", "CheckPerixInfoInner")},
                  {4, BaseLine(bad, "CheckPerixInfoInner")},
                  {4, BaseLine(bad, "CheckPerixInfoInner")}}),
              TraceLines());
}

using Forwarding = InputTest;

TEST_F(Forwarding, DeviceAndServiceChangesReachTheSessionsListenersAsBuiltRecords) {
    Connect("peer-a");
    void* handle = perix_sim_last_handle();
    // Identifiers from the engine are not NUL-terminated: only `len` characters count.
    const char raw[] = "peer-aXXXX";
    PerixDeviceChangeNotify device{raw, 6, 11, 12};
    ASSERT_EQ(0, perix_sim_fire_device_change(handle, &device));
    PerixServiceChangeNotify service{raw, 6, "svc-1junk", 5, 21, 22, 23};
    ASSERT_EQ(0, perix_sim_fire_service_change(handle, &service));

    ASSERT_EQ(1u, seen().devices.size());
    EXPECT_EQ("peer-a", seen().devices[0].deviceId);
    EXPECT_EQ(11u, seen().devices[0].word0);
    EXPECT_EQ(12u, seen().devices[0].word1);
    ASSERT_EQ(1u, seen().services.size());
    EXPECT_EQ("peer-a", seen().services[0].deviceId);
    EXPECT_EQ("svc-1", seen().services[0].serviceId);
    EXPECT_EQ(21u, seen().services[0].word0);
    EXPECT_EQ(23u, seen().services[0].word2);
    EXPECT_TRUE(TraceLines().empty());
}

TEST_F(Forwarding, DataReachesTheListenerAsAPrivateCopyWithThePeerId) {
    Connect("peer-a");
    uint8_t bytes[] = {1, 2, 3, 4, 5};
    BinaryData data{7, 8, bytes, sizeof(bytes)};
    ASSERT_EQ(0, perix_sim_fire_data(perix_sim_last_handle(), &data));
    ASSERT_EQ(1u, seen().data.size());
    const Seen::Data& got = seen().data[0];
    EXPECT_EQ("peer-a", got.deviceId);
    EXPECT_NE(static_cast<const uint8_t*>(bytes), got.pointer) << "the engine's buffer is never handed on";
    EXPECT_EQ(std::vector<uint8_t>(bytes, bytes + 5), got.bytes);
    EXPECT_EQ(7u, got.word0);
    EXPECT_EQ(8u, got.word1);

    // Zero bytes behind a non-null pointer still reach the listener, with length 0.
    BinaryData empty{1, 2, bytes, 0};
    ASSERT_EQ(0, perix_sim_fire_data(perix_sim_last_handle(), &empty));
    ASSERT_EQ(2u, seen().data.size());
    EXPECT_EQ(0u, seen().data[1].len);
}

TEST_F(Forwarding, NullNotificationsAndUnknownHandlesLogTheirOwnLines) {
    Connect("peer-a");
    void* handle = perix_sim_last_handle();
    perix_sim_fire_device_change(handle, nullptr);
    perix_sim_fire_service_change(handle, nullptr);
    perix_sim_fire_data(handle, nullptr);
    BinaryData noBytes{0, 0, nullptr, 4};
    perix_sim_fire_data(handle, &noBytes);
    EXPECT_EQ((std::vector<LogLine>{
                  {4, BaseLine("On DeviceChange, notify is null", "DeviceChange")},
                  {4, BaseLine("On DeviceServiceChange, notify is null", "DeviceServiceChange")},
                  {4, BaseLine("On DataReceive, data is null", "DataReceive")},
                  {4, BaseLine("On DataReceive, data is null", "DataReceive")}}),
              TraceLines());

    // A handle that matches no session: the listener line, not the notify line.
    ClearLogs();
    PerixDeviceChangeNotify device{"x", 1, 0, 0};
    PerixServiceChangeNotify service{"x", 1, "s", 1, 0, 0, 0};
    uint8_t byte = 1;
    BinaryData data{0, 0, &byte, 1};
    void* unknown = reinterpret_cast<void*>(static_cast<uintptr_t>(0x7777));
    OrbPerix::SessionStore empty;
    ForwardDeviceChange(empty, unknown, &device);
    ForwardServiceChange(empty, unknown, &service);
    ForwardDataReceive(empty, unknown, &data);
    EXPECT_EQ((std::vector<LogLine>{
                  {4, BaseLine("On DeviceChange, Listen function is null", "DeviceChange")},
                  {4, BaseLine("On DeviceServiceChange, Listen function is null",
                               "DeviceServiceChange")},
                  {4, BaseLine("On DataReceive, Listen function is null", "DataReceive")}}),
              TraceLines());
    EXPECT_TRUE(seen().devices.empty() && seen().services.empty() && seen().data.empty());
}

TEST_F(Forwarding, ASessionWithoutThatListenerEntryLogsTheListenerLine) {
    ASSERT_EQ(0, provider->Init());
    PERIXInfo info = MakeInfo("peer-b");
    ProviderListener onlyData{};
    onlyData.onDataReceive = &OnData;
    ASSERT_EQ(0, provider->RegisterPERIXListener(&info, &onlyData));
    ClearLogs();
    PerixDeviceChangeNotify device{"peer-b", 6, 0, 0};
    perix_sim_fire_device_change(perix_sim_last_handle(), &device);
    EXPECT_EQ((std::vector<LogLine>{
                  {4, BaseLine("On DeviceChange, Listen function is null", "DeviceChange")}}),
              TraceLines());
}

}  // namespace
