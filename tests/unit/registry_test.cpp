// The provider registry: counts and texts of every kind, destroy of unknown and empty
// providers, and providers created before the engine was initialised.
#include <memory>
#include <string>
#include <vector>

#include "engine_fixture.h"

namespace {

using Registry = EngineTest;

std::vector<std::string> TagTexts() {
    std::vector<std::string> texts;
    for (const LogLine& line : TagLines()) {
        EXPECT_EQ(3, line.level) << line.text;
        texts.push_back(line.text);
    }
    return texts;
}

TEST_F(Registry, SinkCountsAndTheDestroySpellingOfItsTexts) {
    auto first = manager().CreateSinkProvider();
    auto second = manager().CreateSinkProvider();
    ASSERT_TRUE(first && second);
    EXPECT_NE(first, second);
    EXPECT_TRUE(manager().DestorySinkProvider(first));
    EXPECT_FALSE(manager().DestorySinkProvider(first)) << "already destroyed";
    EXPECT_FALSE(manager().DestorySinkProvider(nullptr));
    EXPECT_EQ((std::vector<std::string>{"Create SinkProvider success, sinkProvider count = 1",
                                        "Create SinkProvider success, sinkProvider count = 2",
                                        "DestroySinkProvider in",
                                        "DestroySinkProvider success, SinkProvider count = 1",
                                        "DestroySinkProvider in", "DestroySinkProvider in"}),
              TagTexts());
    EXPECT_EQ("DestroySinkProvider success, SinkProvider count = "
              "1(OrbPerix::PERIXProviderManager::DestorySinkProvider)",
              TraceLines()[3].text);
    EXPECT_TRUE(manager().DestorySinkProvider(second));
}

TEST_F(Registry, SourceAndInputCountsAndTexts) {
    auto source = manager().CreateSourceProvider();
    auto input = manager().CreateInputProvider();
    ASSERT_TRUE(source && input);
    EXPECT_TRUE(manager().DestorySourceProvider(source));
    EXPECT_TRUE(manager().DestoryInputProvider(input));
    EXPECT_FALSE(manager().DestoryInputProvider(input));
    EXPECT_FALSE(manager().DestorySourceProvider(nullptr));
    EXPECT_EQ((std::vector<std::string>{
                  "Create SourceProvider success, SourceProvider count = 1",
                  "Create InputProvider success, InputProvider count = 1",
                  "DestorySourceProvider in", "DestorySourceProvider success, SourceProvider count = 0",
                  "DestoryInputProvider in", "DestoryInputProvider success, InputProvider count = 0",
                  "DestoryInputProvider in", "DestorySourceProvider in"}),
              TagTexts());
    EXPECT_EQ("Create InputProvider success, InputProvider count = "
              "1(OrbPerix::PERIXProviderManager::CreateInputProvider)",
              TraceLines()[1].text);
}

TEST_F(Registry, DestroyDropsOnlyTheRegistryReference) {
    InitializeManager();
    auto sink = manager().CreateSinkProvider();
    std::weak_ptr<OrbPerix::ISinkProvider> watch = sink;
    ASSERT_TRUE(manager().DestorySinkProvider(sink));
    ASSERT_FALSE(watch.expired()) << "the host's reference keeps it alive";
    EXPECT_EQ(0, sink->Init());
    EXPECT_TRUE(EngineCallNames().empty()) << "destroy calls no provider operation";
    sink.reset();
    EXPECT_TRUE(watch.expired());
}

TEST_F(Registry, ProviderCreatedBeforeInitializeNeverReachesTheEngine) {
    auto sink = manager().CreateSinkProvider();
    auto input = manager().CreateInputProvider();
    // Finalize keeps the tables of an earlier Initialize; only a process that never
    // initialised has empty ones (CTest runs every test in a process of its own).
    sink->GetConnectionStatus();
    if (perix_sim_call_count() != 0) {
        manager().DestorySinkProvider(sink);
        manager().DestoryInputProvider(input);
        GTEST_SKIP() << "the manager was initialised earlier in this process";
    }
    ClearLogs();
    InitializeManager();  // fills the manager's tables, not the copies taken before

    EXPECT_EQ(-13, sink->GetConnectionStatus());
    EXPECT_TRUE(HasTraceLine("Get connection status ret: -13(OrbPerix::SinkProvider::GetConnectionStatus)"));

    ASSERT_EQ(0, input->Init());
    PERIXInfo info{};
    info.connectType = 1;
    ProviderListener listener{};
    EXPECT_EQ(-13, input->RegisterPERIXListener(&info, &listener));
    input->DeInit();
    EXPECT_TRUE(EngineCallNames().empty()) << "nothing reached the engine";

    // A provider created now gets the filled tables.
    auto later = manager().CreateSinkProvider();
    EXPECT_EQ(0, later->GetConnectionStatus());
    EXPECT_EQ(std::vector<std::string>{"main.PERIXGetConnectionStatus"}, EngineCallNames());
    manager().DestorySinkProvider(sink);
    manager().DestorySinkProvider(later);
    manager().DestoryInputProvider(input);
}

}  // namespace
