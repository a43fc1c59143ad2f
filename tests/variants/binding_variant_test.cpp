// Runs from a folder whose engine is broken: it lacks one getter, or is missing altogether
// while a good engine lies on the search path. ORBPERIX_EXPECTED_FAILURE is the one line the
// binding must log.
#include <gtest/gtest.h>

#include "log_capture.h"
#include "orbperix/manager.h"

namespace {

TEST(BrokenEngineInstallation, InitializeFailsWithMinus13AndOneBindingLine) {
    auto& manager = OrbPerix::PERIXProviderManager::GetInstance();
    ClearLogs();
    EXPECT_EQ(-13, manager.Initialize(nullptr, "x"));
    EXPECT_FALSE(manager.IsManagerInitialized());
    const std::vector<LogLine> tag = TagLines();
    ASSERT_EQ(2u, tag.size());
    EXPECT_EQ((LogLine{3, "PERIXProviderManager Initalize begin."}), tag[0]);
    EXPECT_EQ((LogLine{4, ORBPERIX_EXPECTED_FAILURE}), tag[1]);

    // Nothing changes on a second attempt: the manager stays uninitialised.
    ClearLogs();
    EXPECT_EQ(-13, manager.Initialize(nullptr, "x"));
    EXPECT_EQ((LogLine{4, ORBPERIX_EXPECTED_FAILURE}), TagLines().back());
    manager.Finalize();
}

}  // namespace
