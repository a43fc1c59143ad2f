// The allocation-failure sweep over every scenario: for each N, the N-th allocation made by the
// library's own code fails, and the run must end without terminate or crash, with the failing
// operation reporting an error and logging it (the exact line where one is defined), nothing
// leaked, and the library usable afterwards. Prints "K allocation points, all handled".
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "fail_alloc.h"
#include "orbperix/orbperix.h"
#include "scenarios.h"

namespace {

uint64_t g_points = 0;
bool g_allHandled = true;

void Report(const sweep::Scenario& scenario, const sweep::Outcome& outcome) {
    std::printf("%s: %llu allocation points, %zu unhandled, %.1f s\n", scenario.name.c_str(),
                static_cast<unsigned long long>(outcome.points), outcome.problems.size(),
                outcome.seconds);
    g_points += outcome.points;
    g_allHandled = g_allHandled && outcome.problems.empty();
    EXPECT_GT(outcome.points, 0u) << "the scenario reached no library allocation";
    for (const std::string& problem : outcome.problems) {
        ADD_FAILURE() << problem;
    }
}

void Check(const sweep::Scenario& scenario) { Report(scenario, sweep::Sweep(scenario)); }

void CheckFresh(sweep::Scenario scenario) {
    const sweep::Outcome outcome = sweep::SweepFresh(scenario);
    scenario.name += " (fresh process per run)";
    Report(scenario, outcome);
}

// First, while this process has no thread but the main one: each run in a child process made
// by fork, so that what the library creates once per process is failed too.
TEST(AllocationFailureFreshProcess, InputSession) { CheckFresh(scenarios::InputSession()); }
TEST(AllocationFailureFreshProcess, SourceSession) { CheckFresh(scenarios::SourceSession()); }
TEST(AllocationFailureFreshProcess, SinkSession) { CheckFresh(scenarios::SinkSession()); }
TEST(AllocationFailureFreshProcess, EngineNotifications) { CheckFresh(scenarios::Notifications()); }
TEST(AllocationFailureFreshProcess, CInterfaceSession) { CheckFresh(scenarios::CSession()); }
TEST(AllocationFailureFreshProcess, CastBridge) { CheckFresh(scenarios::CastBridge()); }

// Then in this process, run after run: the library's state after a failed run must let the
// next one work.

TEST(AllocationFailure, InputSession) { Check(scenarios::InputSession()); }
TEST(AllocationFailure, SourceSession) { Check(scenarios::SourceSession()); }
TEST(AllocationFailure, SinkSession) { Check(scenarios::SinkSession()); }
TEST(AllocationFailure, EngineNotifications) { Check(scenarios::Notifications()); }
TEST(AllocationFailure, CInterfaceSession) { Check(scenarios::CSession()); }
TEST(AllocationFailure, CastBridge) { Check(scenarios::CastBridge()); }

[[noreturn]] void OnTerminate() {
    std::fputs("alloc sweep: std::terminate called (an exception escaped the library)\n", stderr);
    std::abort();
}

}  // namespace

int main(int argc, char** argv) {
    std::set_terminate(&OnTerminate);
    ::testing::InitGoogleTest(&argc, argv);
    // The library is linked, so it is mapped by now.
    OrbPerix::PERIXProviderManager::GetInstance();
    if (!failalloc::Locate()) {
        std::fputs("alloc sweep: libOrbPerixProvider or libstdc++ not found in the process\n", stderr);
        return 2;
    }
    const int result = RUN_ALL_TESTS();
    if (result == 0 && g_allHandled) {
        std::printf("%llu allocation points, all handled\n", static_cast<unsigned long long>(g_points));
    }
    return result;
}
