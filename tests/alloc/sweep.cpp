#include "sweep.h"

#include <chrono>
#include <cstdio>
#include <thread>

#include "SinkTestApi.h"
#include "fail_alloc.h"
#include "perix_sim.h"

namespace sweep {
namespace {

constexpr int kLevelError = 4;

struct Line {
    int level;
    std::string text;
};

struct Run {
    std::vector<int> results;
    std::vector<std::vector<Line>> lines;  // QxLogger lines logged during each step
    failalloc::Failure failure;
    uint64_t count = 0;
    // Library bytes still allocated after the run and its cleanup, beyond those before it.
    // Engine load records are kept for the life of the process on purpose, so a clean run
    // has a small positive figure; a failing run may not exceed it.
    int64_t liveBytes = 0;
    int liveHandles = 0;
};

int LineCount() { return tracekit_test_line_count(); }

std::vector<Line> LinesFrom(int first) {
    std::vector<Line> lines;
    char text[1024];
    for (int i = first;; ++i) {
        int level = 0;
        if (tracekit_test_line(i, &level, text, sizeof(text)) < 0) {
            break;
        }
        lines.push_back(Line{level, text});
    }
    return lines;
}

bool WaitFor(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

int ErrorCount() {
    int errors = 0;
    for (const Line& line : LinesFrom(0)) {
        errors += line.level == kLevelError ? 1 : 0;
    }
    return errors;
}

Run RunOnce(const Scenario& scenario, uint64_t failAt) {
    Run run;
    const int64_t liveBefore = failalloc::LiveLibraryBytes();
    tracekit_test_clear();
    corvus_test_clear();
    failalloc::MarkScenarioThread();
    failalloc::Arm(failAt);
    failalloc::Enable(true);
    for (size_t i = 0; i < scenario.steps.size(); ++i) {
        const Step& step = scenario.steps[i];
        failalloc::SetStep(static_cast<int>(i));
        const int first = LineCount();
        const uint64_t background = failalloc::BackgroundCount();
        const int result = step.run();
        if (result == step.expected && step.background > 0) {
            WaitFor([&] { return failalloc::BackgroundCount() - background >= step.background; });
        }
        const failalloc::Failure failure = failalloc::LastFailure();
        if (failure.happened && failure.step == static_cast<int>(i) && !failure.onScenarioThread &&
            step.background > 0) {
            // A thread the step does not wait for hit it: give its error line time to arrive.
            const int errors = ErrorCount();
            WaitFor([&] { return ErrorCount() > errors; });
        }
        run.results.push_back(result);
        run.lines.push_back(LinesFrom(first));
    }
    failalloc::SetStep(-1);
    failalloc::Enable(false);
    run.failure = failalloc::LastFailure();
    run.count = failalloc::Count();
    scenario.cleanup();
    run.liveBytes = failalloc::LiveLibraryBytes() - liveBefore;
    run.liveHandles = perix_sim_live_handle_count();
    return run;
}

bool Contains(const std::vector<Line>& lines, const Line& wanted) {
    for (const Line& line : lines) {
        if (line.level == wanted.level && line.text == wanted.text) {
            return true;
        }
    }
    return false;
}

// An error line of `run` that the clean run did not log.
bool NewErrorLine(const std::vector<Line>& run, const std::vector<Line>& clean) {
    for (const Line& line : run) {
        if (line.level == kLevelError && !Contains(clean, line)) {
            return true;
        }
    }
    return false;
}

bool HasMessage(const std::vector<Line>& lines, const std::string& message) {
    for (const Line& line : lines) {
        // A line is the message followed by "(" scope ")".
        if (line.text.compare(0, message.size() + 1, message + "(") == 0) {
            return true;
        }
    }
    return false;
}

// Empty when the failure of allocation `n` was handled; else what went wrong.
std::string Judge(const Scenario& scenario, const Run& clean, size_t cleanSize, const Run& run,
                  uint64_t n) {
    const failalloc::Failure& failure = run.failure;
    if (!failure.happened || failure.step < 0) {
        return "the allocation was not reached (allocations differ between runs)";
    }
    if (failure.size != cleanSize) {
        return "allocation of " + std::to_string(failure.size) + " bytes where the clean run made " +
               std::to_string(cleanSize) + " (allocations differ between runs)";
    }
    const size_t s = static_cast<size_t>(failure.step);
    const Step& step = scenario.steps[s];
    for (size_t i = 0; i < s; ++i) {
        if (run.results[i] != scenario.steps[i].expected) {
            return "step '" + scenario.steps[i].name + "' before the failure returned " +
                   std::to_string(run.results[i]) + " (state left by an earlier run?)";
        }
    }
    const std::string where = "step '" + step.name + "' (" + std::to_string(failure.size) +
                              " bytes, " + (failure.onScenarioThread ? "host" : "library") +
                              " thread)";
    const bool newError = NewErrorLine(run.lines[s], clean.lines[s]);
    if (run.results[s] != step.expected) {
        if (!newError) {
            return where + " failed with " + std::to_string(run.results[s]) +
                   " but logged no error line";
        }
    } else if (!newError && run.lines[s].size() >= clean.lines[s].size()) {
        return where + " succeeded and the failure left no trace (no error line, no line dropped)";
    }
    for (const auto& expected : step.lines) {
        if (expected.first == failure.size && !HasMessage(run.lines[s], expected.second)) {
            return where + " did not log \"" + expected.second + "\"";
        }
    }
    if (run.liveBytes > clean.liveBytes) {
        return where + ": " + std::to_string(run.liveBytes - clean.liveBytes) +
               " bytes of library allocations leaked";
    }
    if (run.liveHandles != clean.liveHandles) {
        return where + ": engine handles left live: " + std::to_string(run.liveHandles) +
               " (clean run: " + std::to_string(clean.liveHandles) + ")";
    }
    (void)n;
    return std::string();
}

}  // namespace

Outcome Sweep(const Scenario& scenario) {
    Outcome outcome;
    const auto start = std::chrono::steady_clock::now();
    // Process-wide state made on first use (the remote-event sender, stream facets) exists
    // from here on; the clean run is then the same every time.
    RunOnce(scenario, 0);
    const Run clean = RunOnce(scenario, 0);
    std::vector<size_t> sizes(clean.count + 1, 0);
    for (uint64_t n = 1; n <= clean.count; ++n) {
        sizes[n] = failalloc::SizeOf(n);
    }
    for (size_t i = 0; i < scenario.steps.size(); ++i) {
        if (clean.results[i] != scenario.steps[i].expected) {
            outcome.problems.push_back("clean run: step '" + scenario.steps[i].name +
                                       "' returned " + std::to_string(clean.results[i]));
        }
    }
    const Run again = RunOnce(scenario, 0);
    if (again.count != clean.count || again.liveBytes != clean.liveBytes) {
        outcome.problems.push_back("two clean runs differ: " + std::to_string(clean.count) + " and " +
                                   std::to_string(again.count) + " allocations, " +
                                   std::to_string(again.liveBytes - clean.liveBytes) +
                                   " bytes live apart");
    }
    outcome.points = clean.count;
    if (!outcome.problems.empty()) {
        return outcome;
    }
    for (uint64_t n = 1; n <= clean.count; ++n) {
        const Run run = RunOnce(scenario, n);
        const std::string problem = Judge(scenario, clean, sizes[n], run, n);
        if (!problem.empty()) {
            outcome.problems.push_back(scenario.name + ", allocation " + std::to_string(n) + ": " +
                                       problem);
        }
    }
    // The library still works after the whole sweep.
    const Run after = RunOnce(scenario, 0);
    for (size_t i = 0; i < scenario.steps.size(); ++i) {
        if (after.results[i] != scenario.steps[i].expected) {
            outcome.problems.push_back("after the sweep: step '" + scenario.steps[i].name +
                                       "' returned " + std::to_string(after.results[i]));
        }
    }
    outcome.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return outcome;
}

}  // namespace sweep
