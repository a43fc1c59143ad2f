// The cast bridge forwards to the casting engine (the ScreenRelay stand-in) and converts only
// the results that the interface fixes.
#include <gtest/gtest.h>

#include <memory>

#include "ScreenRelayTest.h"
#include "log_capture.h"
#include "orbperix/manager.h"

namespace {

class FakeListener : public ICastServiceListener {
public:
    void OnServiceDied() override {}
};

class FakeSession : public ICastSession {
public:
    int RegisterListener(std::shared_ptr<ICastSessionListener>) override { return 0; }
    int UnregisterListener() override { return 0; }
    int AddDevice(const std::string&) override { return 0; }
    int RemoveDevice(const std::string&) override { return 0; }
    int StartAuth(const std::string&) override { return 0; }
    int GetSessionId(std::string&) override { return 0; }
    int SetSessionProperty(const CastSessionProperty&) override { return 0; }
    int Play(const std::string&) override { return 0; }
    int Release() override { return 0; }
};

class CastBridge : public ::testing::Test {
protected:
    void SetUp() override {
        screenrelay_test::Reset();
        ClearLogs();
    }
    void TearDown() override { screenrelay_test::Reset(); }
    OrbPerix::PERIXProviderManager& manager() { return OrbPerix::PERIXProviderManager::GetInstance(); }
};

TEST_F(CastBridge, InitReturnsOneForSuccessAndPassesTheListenerOn) {
    auto listener = std::make_shared<FakeListener>();
    EXPECT_EQ(1, manager().InitCastEngine(listener));
    EXPECT_EQ(listener, screenrelay_test::GetRecord().lastListener);
    EXPECT_EQ(2, listener.use_count()) << "the engine keeps its own copy";

    screenrelay_test::SetResults(false, 0, nullptr, true);
    EXPECT_EQ(0, manager().InitCastEngine(nullptr)) << "an empty listener is passed on as it is";
    EXPECT_EQ(nullptr, screenrelay_test::GetRecord().lastListener);
    EXPECT_EQ(2, screenrelay_test::GetRecord().initCalls);
    EXPECT_TRUE(TraceLines().empty()) << "the bridge logs nothing";
}

TEST_F(CastBridge, SetLocalDeviceAlwaysReturnsZero) {
    screenrelay_test::SetResults(true, -7, nullptr, true);
    CastLocalDevice device{"local-1", "desk", 1, "10.0.0.1"};
    EXPECT_EQ(0, manager().SetCastEngineLocalDevice(device));
    EXPECT_EQ("local-1", screenrelay_test::GetRecord().lastDeviceId);
}

TEST_F(CastBridge, SessionsAreHandedBackAndDestroyedUnchanged) {
    auto session = std::make_shared<FakeSession>();
    screenrelay_test::SetResults(true, 0, session, false);
    CastSessionProperty property{2, 1, 1920, 1080, 60, 48000};
    std::shared_ptr<ICastSession> created = manager().CreateCastSession(property);
    EXPECT_EQ(session, created);
    EXPECT_EQ(2u, screenrelay_test::GetRecord().lastProtocolType);
    EXPECT_FALSE(manager().DestroyCastSession(created)) << "the engine's result, unchanged";
    EXPECT_EQ(session, screenrelay_test::GetRecord().lastDestroyed);

    screenrelay_test::SetResults(true, 0, nullptr, true);
    EXPECT_EQ(nullptr, manager().CreateCastSession(property)) << "empty on failure";
    EXPECT_TRUE(manager().DestroyCastSession(nullptr));
}

TEST(CastTypes, SessionListenerCopiesShareItsReferences) {
    auto session = std::make_shared<FakeSession>();
    ICastSessionListener original;
    original.session = session;
    int calls = 0;
    original.onEvent = [&calls](int, const std::string&) { ++calls; };
    {
        ICastSessionListener copy(original);
        EXPECT_EQ(3, session.use_count());
        copy.onEvent(1, "x");
        ICastSessionListener assigned;
        assigned = copy;
        EXPECT_EQ(4, session.use_count());
    }
    EXPECT_EQ(2, session.use_count()) << "copies release their references";
    EXPECT_EQ(1, calls);
}

}  // namespace
