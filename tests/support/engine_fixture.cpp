#include "engine_fixture.h"

namespace {
const char* const kTableNames[] = {"main", "button", "audio", "refresh"};
}

std::vector<std::string> EngineCallNames() {
    std::vector<std::string> names;
    const int n = perix_sim_call_count();
    for (int i = 0; i < n; ++i) {
        perix_sim_call call{};
        if (perix_sim_get_call(i, &call) == 0) {
            names.push_back(std::string(kTableNames[call.table]) + "." + call.name);
        }
    }
    return names;
}

std::vector<perix_sim_call> EngineCalls(int table, int slot) {
    std::vector<perix_sim_call> calls;
    perix_sim_call call{};
    for (int nth = 0; perix_sim_find_call(table, slot, nth, &call) == 0; ++nth) {
        calls.push_back(call);
    }
    return calls;
}

void EngineTest::SetUp() {
    manager().Finalize();
    perix_sim_reset();
    ClearLogs();
}

void EngineTest::TearDown() {
    manager().Finalize();
    perix_sim_reset();
}

void EngineTest::InitializeManager() {
    ASSERT_EQ(0, manager().Initialize(nullptr, "test"));
    perix_sim_clear_calls();
    ClearLogs();
}
