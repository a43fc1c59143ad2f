// Where the manager loads the engine from when the host says (orbperix_set_engine_path, the
// ORBPERIX_ENGINE_PATH environment variable), and that the default stays the executable's folder.
// The places named are the build's folders of broken simulated engines (each lacks one getter),
// so the failure line proves which engine was loaded: the good one lies beside this program.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "log_capture.h"
#include "orbperix/manager.h"
#include "orbperix/orbperix_c.h"
#include "platform/platform.h"

namespace {

using OrbPerix::PERIXProviderManager;

// A folder of broken engines, built beside bin/ by tests/CMakeLists.txt.
std::string Variant(const char* name) {
    return OrbPerix::platform::ExecutableDirectory() + "/../variants/" + name;
}

class EnginePath : public ::testing::Test {
protected:
    void SetUp() override { ClearLogs(); }
    void TearDown() override {
        manager_.Finalize();
        EXPECT_EQ(0, orbperix_set_engine_path(nullptr));
    }
    // Initialize's result; *last receives the last Logger line.
    int Initialize(LogLine* last) {
        ClearLogs();
        const int result = manager_.Initialize(nullptr, "engine-path");
        const std::vector<LogLine> lines = TagLines();
        *last = lines.empty() ? LogLine{} : lines.back();
        return result;
    }
    // Initialize with the engine at `path` fails with -13 and `line` as the last Logger line.
    void ExpectFailureFrom(const std::string& path, const char* line) {
        ASSERT_EQ(0, orbperix_set_engine_path(path.c_str()));
        LogLine last;
        EXPECT_EQ(-13, Initialize(&last));
        EXPECT_EQ((LogLine{4, line}), last);
        EXPECT_FALSE(manager_.IsManagerInitialized());
    }
    PERIXProviderManager& manager_ = PERIXProviderManager::GetInstance();
};

TEST_F(EnginePath, FolderLoadsTheEngineFileInIt) {
    ExpectFailureFrom(Variant("without_main"), "perixHandlerFun is nullptr");
}

TEST_F(EnginePath, FileLoadsThatFile) {
    const std::string file =
        Variant("without_button") + "/" + OrbPerix::platform::EngineModuleFileName();
    ASSERT_EQ(0, orbperix_set_engine_path(file.c_str()));
    LogLine last;
    EXPECT_EQ(-13, Initialize(&last));
    EXPECT_EQ((LogLine{4, "buttonHandlerFun is nullptr"}), last);
    // The location is named once, among the Logger lines.
    int named = 0;
    for (const LogLine& line : TagLines()) {
        named += line.text == "engine location: " + file ? 1 : 0;
    }
    EXPECT_EQ(1, named);
}

TEST_F(EnginePath, ClearedOrEmptyPathKeepsTheDefault) {
    ASSERT_EQ(0, orbperix_set_engine_path(Variant("without_main").c_str()));
    ASSERT_EQ(0, orbperix_set_engine_path(nullptr));
    LogLine last;
    EXPECT_EQ(0, Initialize(&last));
    manager_.Finalize();
    ASSERT_EQ(0, orbperix_set_engine_path(""));
    EXPECT_EQ(0, Initialize(&last));
    for (const LogLine& line : TagLines()) {
        EXPECT_EQ(std::string::npos, line.text.find("engine location")) << line.text;
    }
}

TEST_F(EnginePath, MissingPlaceFailsWithoutTryingTheDefault) {
    ExpectFailureFrom(Variant("no_such_folder"), "LoadLibrary failed");
}

TEST_F(EnginePath, RefusedWhileInitialised) {
    LogLine last;
    ASSERT_EQ(0, Initialize(&last));
    EXPECT_EQ(-4, orbperix_set_engine_path(Variant("without_main").c_str()));
    EXPECT_TRUE(HasTraceLine(
        "the engine is loaded already: the path applies before initialising"
        "(orbperix_c::orbperix_set_engine_path)"));
    manager_.Finalize();
    // Nothing was stored: the next initialisation still uses the default.
    EXPECT_EQ(0, Initialize(&last));
}

// Runs with ORBPERIX_ENGINE_PATH set (CTest test unit.EnginePathFromEnvironment); skipped in the
// plain run.
TEST_F(EnginePath, EnvironmentVariableHasTheSameEffectAndTheHostCallWins) {
    if (std::getenv("ORBPERIX_ENGINE_PATH") == nullptr) {
        GTEST_SKIP() << "needs ORBPERIX_ENGINE_PATH (see unit.EnginePathFromEnvironment)";
    }
    LogLine last;
    EXPECT_EQ(-13, Initialize(&last));
    EXPECT_EQ((LogLine{4, "audioHandlerFun is nullptr"}), last);
    ASSERT_EQ(0, orbperix_set_engine_path(Variant("without_main").c_str()));
    EXPECT_EQ(-13, Initialize(&last));
    EXPECT_EQ((LogLine{4, "perixHandlerFun is nullptr"}), last);
}

}  // namespace
