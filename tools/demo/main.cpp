// orbperix-demo: a host's whole session against the simulated engine, one line per step.
// Exits non-zero on any unexpected result.
#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "SinkTestApi.h"
#include "demo.h"
#include "perix_sim.h"

namespace {

int g_lastTraceLine = 0;

// Prints the log lines that the library wrote since the last call.
void ShowNewLogLines() {
    const int count = tracekit_test_line_count();
    for (; g_lastTraceLine < count; ++g_lastTraceLine) {
        char text[512];
        int level = 0;
        if (tracekit_test_line(g_lastTraceLine, &level, text, sizeof(text)) >= 0) {
            std::printf("      log %s %s\n", level == 4 ? "ERROR" : "INFO ", text);
        }
    }
}

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

void DemoStep(const char* what, int result) {
    std::printf("%-58s -> %d\n", what, result);
    ShowNewLogLines();
}

void DemoDetail(const char* format, ...) {
    std::printf("      ");
    va_list args;
    va_start(args, format);
    std::vprintf(format, args);
    va_end(args);
    std::printf("\n");
}

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

#if defined(ORBPERIX_DEMO_INPUT_SESSION)
    ok = RunInputSession(manager) && ok;
#endif
#if defined(ORBPERIX_DEMO_SOURCE_SESSION)
    ok = RunSourceSession(manager) && ok;
#endif
#if defined(ORBPERIX_DEMO_SINK_SESSION)
    ok = RunSinkSession(manager) && ok;
#endif

    const int before = perix_sim_call_count();
    manager.Finalize();
    DemoStep("Finalize", 0);
    ShowEngineCalls(before);
    ok = ok && !manager.IsManagerInitialized();

    std::printf("== %s\n", ok ? "demo finished: every step gave the expected result"
                              : "FAILED: some step gave an unexpected result");
    return ok ? 0 : 1;
}
