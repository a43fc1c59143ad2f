// Engine tables for tests that construct providers directly: the simulated engine core's own
// tables (the ones the engine module's slots forward to), so they stay valid whether or not the
// manager has the module loaded.
#ifndef ORBPERIX_TESTS_UNIT_PROVIDER_TABLES_H_
#define ORBPERIX_TESTS_UNIT_PROVIDER_TABLES_H_

#include <gtest/gtest.h>

#include "orbperix/engine_tables.h"
#include "perix_sim.h"

struct EngineTableSet {
    OrbPERIXHandler main{};
    AudioHandlerSource audio{};
    RefreshHandlerSource refresh{};
};

inline EngineTableSet FetchEngineTables() {
    EngineTableSet tables;
    perix_sim_core_tables(&tables.main, nullptr, &tables.audio, &tables.refresh);
    return tables;
}

#endif  // ORBPERIX_TESTS_UNIT_PROVIDER_TABLES_H_
