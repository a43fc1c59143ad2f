// The demo's step printer: one line per step with its result, then the library's log lines
// written since the previous step. Called by main.cpp and every session, on the main thread.
#include <cstdarg>
#include <cstdio>

#include "SinkTestApi.h"
#include "demo_step.h"

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
