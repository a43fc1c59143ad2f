// orbperix-demo: a host's whole session against the simulated engine, one line per step.
// Exits non-zero on any unexpected result.
#include <cstdio>

#include "demo.h"
#include "demo_step.h"
#include "perix_sim.h"

namespace {

void ShowEngineCalls(int from) {
    const int count = perix_sim_call_count();
    for (int i = from; i < count; ++i) {
        perix_sim_call call{};
        if (perix_sim_get_call(i, &call) == 0) {
            std::printf("      engine %s%s%s\n", call.name, call.text[0] != '\0' ? " " : "",
                        call.text);
        }
    }
}

}  // namespace

int main() {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    OrbPerix::PERIXProviderManager& manager = OrbPerix::PERIXProviderManager::GetInstance();
    bool ok = true;

    std::printf("== OrbPerixProvider demo against the simulated engine\n");
    int result = manager.Initialize(nullptr, "demo-host");
    DemoStep("Initialize (engine loaded from the executable's folder)", result);
    ShowEngineCalls(0);
    if (result != 0 || !manager.IsManagerInitialized()) {
        std::printf("FAILED: the engine could not be initialised\n");
        return 1;
    }
    result = manager.Initialize(nullptr, "again");
    DemoStep("Initialize again (refused)", result);
    ok = ok && result == -4;

    ok = RunInputSession(manager) && ok;
    ok = RunSourceSession(manager) && ok;
    ok = RunSinkSession(manager) && ok;

    const int before = perix_sim_call_count();
    manager.Finalize();
    DemoStep("Finalize", 0);
    ShowEngineCalls(before);
    ok = ok && !manager.IsManagerInitialized();

    std::printf("== %s\n", ok ? "demo finished: every step gave the expected result"
                              : "FAILED: some step gave an unexpected result");
    return ok ? 0 : 1;
}
