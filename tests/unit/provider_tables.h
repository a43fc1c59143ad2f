// The live engine load, for tests that construct providers directly: the manager is
// initialised against the simulated engine when it is not yet, and the calls that made are
// forgotten, and so are the lines it logged.
#ifndef ORBPERIX_TESTS_UNIT_PROVIDER_TABLES_H_
#define ORBPERIX_TESTS_UNIT_PROVIDER_TABLES_H_

#include <gtest/gtest.h>

#include "engine/engine_gate.h"
#include "log_capture.h"
#include "orbperix/manager.h"
#include "perix_sim.h"

inline const OrbPerix::EngineLoad& LiveEngineLoad() {
    if (OrbPerix::engine::Current().generation == 0) {
        EXPECT_EQ(0, OrbPerix::PERIXProviderManager::GetInstance().Initialize(nullptr, "test"));
        ClearLogs();
    }
    perix_sim_clear_calls();
    return OrbPerix::engine::Current();
}

#endif  // ORBPERIX_TESTS_UNIT_PROVIDER_TABLES_H_
