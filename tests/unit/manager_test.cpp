// Manager lifecycle and engine binding through the real loading path: the simulated engine
// lies beside this executable and is loaded from there.
#include <string>
#include <vector>

#include "engine_fixture.h"

namespace {

const char* const kInit = "OrbPerix::PERIXProviderManager::Initialize";

std::string Scoped(const std::string& message, const char* scope) {
    return message + "(" + scope + ")";
}

std::vector<LogLine> ManagerLines(std::initializer_list<std::pair<int, const char*>> messages) {
    std::vector<LogLine> lines;
    for (const auto& m : messages) {
        lines.push_back(LogLine{m.first, m.second});
    }
    return lines;
}

using ManagerLifecycle = EngineTest;

TEST_F(ManagerLifecycle, InitializeCallsGettersThenLogRegisterThenInitial) {
    int token = 0;
    auto* logFuncs = reinterpret_cast<tagPERIXLogFuncGroup*>(&token);
    ASSERT_EQ(0, manager().Initialize(logFuncs, "init-text"));
    EXPECT_TRUE(manager().IsManagerInitialized());
    EXPECT_EQ((std::vector<std::string>{"main.PERIXGetOrbPERIXHandler",
                                        "button.PERIXGetButtonHandlerSource",
                                        "audio.PERIXGetAudioHandlerSource",
                                        "refresh.PERIXGetRefreshHandlerSource",
                                        "main.PERIXLogRegister", "main.PERIXInitial"}),
              EngineCallNames());
    perix_sim_call call{};
    ASSERT_EQ(0, perix_sim_find_call(PERIX_SIM_MAIN, 3, 0, &call));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(logFuncs), call.args[0]) << "log group passed unchanged";
    ASSERT_EQ(0, perix_sim_find_call(PERIX_SIM_MAIN, 0, 0, &call));
    EXPECT_STREQ("init-text", call.text);
}

TEST_F(ManagerLifecycle, ManagerLinesGoToBothSinksWithTheScopeOnlyOnTheTraceSink) {
    ASSERT_EQ(0, manager().Initialize(nullptr, ""));
    EXPECT_EQ(ManagerLines({{3, "PERIXProviderManager Initalize begin."},
                            {3, "PERIXProviderManager Initalize End."}}),
              TagLines());
    EXPECT_EQ((std::vector<LogLine>{
                  {3, Scoped("PERIXProviderManager Initalize begin.", kInit)},
                  {3, Scoped("PERIXProviderManager Initalize End.", kInit)}}),
              TraceLines());
}

TEST_F(ManagerLifecycle, SecondInitializeIsRefusedWithoutTouchingTheEngine) {
    ASSERT_EQ(0, manager().Initialize(nullptr, "a"));
    perix_sim_clear_calls();
    ClearLogs();
    EXPECT_EQ(-4, manager().Initialize(nullptr, "b"));
    EXPECT_TRUE(EngineCallNames().empty());
    EXPECT_EQ(ManagerLines({{3, "PERIXProviderManager Initalize begin."},
                            {4, "PERIXProviderManager already Initalized."}}),
              TagLines());
    EXPECT_TRUE(manager().IsManagerInitialized());
}

TEST_F(ManagerLifecycle, FinalizeReleasesOnceAndIsANoOpWhenNotInitialized) {
    manager().Finalize();
    manager().Finalize();
    EXPECT_TRUE(EngineCallNames().empty()) << "Finalize before Initialize calls nothing";

    ASSERT_EQ(0, manager().Initialize(nullptr, "x"));
    perix_sim_clear_calls();
    ClearLogs();
    manager().Finalize();
    manager().Finalize();
    EXPECT_EQ(std::vector<std::string>{"main.PERIXRelease"}, EngineCallNames());
    EXPECT_FALSE(manager().IsManagerInitialized());
    EXPECT_TRUE(TagLines().empty()) << "Finalize logs nothing";
}

struct GetterFailure {
    int table;
    int result;
    const char* message;  // null: the failure is deliberately silent
    size_t engineCalls;   // getter calls made, the failing one included
};

std::string GetterName(const ::testing::TestParamInfo<GetterFailure>& param) {
    static const char* const kNames[] = {"Main", "Button", "Audio", "RefreshSilently"};
    return kNames[param.param.table];
}

class GetterFailures : public EngineTest, public ::testing::WithParamInterface<GetterFailure> {};

TEST_P(GetterFailures, ReturnTheEngineResultAndLeaveTheManagerUninitialised) {
    const GetterFailure& f = GetParam();
    perix_sim_set_getter_result(f.table, f.result);
    EXPECT_EQ(f.result, manager().Initialize(nullptr, "x"));
    EXPECT_FALSE(manager().IsManagerInitialized());
    EXPECT_EQ(f.engineCalls, EngineCallNames().size());
    std::vector<LogLine> expected = {{3, "PERIXProviderManager Initalize begin."}};
    if (f.message != nullptr) {
        expected.push_back(LogLine{4, std::string(f.message) + std::to_string(f.result)});
    }
    EXPECT_EQ(expected, TagLines());
}

INSTANTIATE_TEST_SUITE_P(
    Initialize, GetterFailures,
    ::testing::Values(GetterFailure{PERIX_SIM_MAIN, 7, "perixHandlerFun failed with ret ", 1},
                      GetterFailure{PERIX_SIM_BUTTON, -13, "buttonHandlerFun failed with ret ", 2},
                      GetterFailure{PERIX_SIM_AUDIO, 9, "audioHandlerFun failed with ret ", 3},
                      GetterFailure{PERIX_SIM_REFRESH, 5, nullptr, 4}),
    GetterName);

TEST_F(ManagerLifecycle, LogRegisterAndInitialFailuresAreLoggedAndReturned) {
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 3, -13);
    EXPECT_EQ(-13, manager().Initialize(nullptr, "x"));
    EXPECT_EQ(ManagerLines({{3, "PERIXProviderManager Initalize begin."},
                            {4, "PERIXLogRegister failed with ret -13"}}),
              TagLines());
    EXPECT_FALSE(manager().IsManagerInitialized());

    // The half-loaded manager initialises on the next attempt.
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 3, 0);
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 0, 42);
    ClearLogs();
    EXPECT_EQ(42, manager().Initialize(nullptr, "x"));
    EXPECT_EQ(Scoped("PERIXInitial failed with ret 42", kInit), TraceLines().back().text);
    EXPECT_EQ(4, TraceLines().back().level);
    perix_sim_set_slot_result(PERIX_SIM_MAIN, 0, 0);
    EXPECT_EQ(0, manager().Initialize(nullptr, "x"));
}

// The second Initialize, after a Finalize, loads and binds the engine afresh.
TEST_F(ManagerLifecycle, NullLogGroupAndLongOrEmptyInitTextPassUnchanged) {
    const std::string longText(5000, 'q');
    ASSERT_EQ(0, manager().Initialize(nullptr, longText));
    perix_sim_call call{};
    ASSERT_EQ(0, perix_sim_find_call(PERIX_SIM_MAIN, 3, 0, &call));
    EXPECT_EQ(0u, call.args[0]);
    ASSERT_EQ(0, perix_sim_find_call(PERIX_SIM_MAIN, 0, 0, &call));
    EXPECT_EQ(std::string(259, 'q'), std::string(call.text)) << "recorded prefix of the text";
    manager().Finalize();
    perix_sim_clear_calls();
    ASSERT_EQ(0, manager().Initialize(nullptr, std::string()));
    EXPECT_TRUE(manager().IsManagerInitialized());
    EXPECT_EQ(6u, EngineCallNames().size()) << "four getters, log register, initial";
    ASSERT_EQ(0, perix_sim_find_call(PERIX_SIM_MAIN, 0, 0, &call));
    EXPECT_STREQ("", call.text);
}

}  // namespace
