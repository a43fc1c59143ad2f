// Engine tables for tests that construct providers directly: taken from the simulated engine's
// own getters (the same loaded copy that the manager binds), with the getter calls forgotten.
#ifndef ORBPERIX_TESTS_UNIT_PROVIDER_TABLES_H_
#define ORBPERIX_TESTS_UNIT_PROVIDER_TABLES_H_

#include <gtest/gtest.h>

#include "orbperix/engine_tables.h"
#include "perix_sim.h"

extern "C" {
PERIX_SIM_API int PERIXGetOrbPERIXHandler(OrbPERIXHandler* table);
PERIX_SIM_API int PERIXGetAudioHandlerSource(AudioHandlerSource* table);
PERIX_SIM_API int PERIXGetRefreshHandlerSource(RefreshHandlerSource* table);
}

struct EngineTableSet {
    OrbPERIXHandler main{};
    AudioHandlerSource audio{};
    RefreshHandlerSource refresh{};
};

inline EngineTableSet FetchEngineTables() {
    EngineTableSet tables;
    EXPECT_EQ(0, PERIXGetOrbPERIXHandler(&tables.main));
    EXPECT_EQ(0, PERIXGetAudioHandlerSource(&tables.audio));
    EXPECT_EQ(0, PERIXGetRefreshHandlerSource(&tables.refresh));
    perix_sim_clear_calls();
    return tables;
}

#endif  // ORBPERIX_TESTS_UNIT_PROVIDER_TABLES_H_
