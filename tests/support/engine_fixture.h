// Fixtures for tests that run the manager against the simulated engine loaded from the test
// executable's folder.
#ifndef ORBPERIX_TESTS_SUPPORT_ENGINE_FIXTURE_H_
#define ORBPERIX_TESTS_SUPPORT_ENGINE_FIXTURE_H_

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "log_capture.h"
#include "orbperix/orbperix.h"
#include "perix_sim.h"

// "<table>.<slot name>" of every engine call recorded so far, in order.
std::vector<std::string> EngineCallNames();
// The recorded calls of one slot.
std::vector<perix_sim_call> EngineCalls(int table, int slot);

// A fresh engine and empty logs before each test, the manager finalised after it.
class EngineTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    OrbPerix::PERIXProviderManager& manager() { return OrbPerix::PERIXProviderManager::GetInstance(); }
    // Initialises the manager against the simulated engine and forgets the calls and lines
    // that it made.
    void InitializeManager();
};

#endif  // ORBPERIX_TESTS_SUPPORT_ENGINE_FIXTURE_H_
