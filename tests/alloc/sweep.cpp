#include "sweep.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <csignal>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

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

// No exception may leave a library operation: one that does ends here, in std::terminate.
int RunStep(const Step& step) noexcept { return step.run(); }

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
        const int errorsBefore = ErrorCount();
        const uint64_t background = failalloc::BackgroundCount();
        const int result = RunStep(step);
        if (result == step.expected && step.background > 0) {
            WaitFor([&] { return failalloc::BackgroundCount() - background >= step.background; });
        }
        const failalloc::Failure failure = failalloc::LastFailure();
        if (failure.happened && failure.step == static_cast<int>(i) && !failure.onScenarioThread &&
            step.background > 0) {
            // A thread the step does not wait for hit it: give its error line time to arrive.
            WaitFor([&] { return ErrorCount() > errorsBefore; });
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

// Empty when the failure in `run` was handled; else what went wrong. Handled means: the same
// allocation as in the clean run failed; every step before it did as in the clean run; the
// failing step either failed and logged a new error line (the step's own line and code where
// it names them, the defined line for the allocation's size where there is one), or succeeded
// and either logged a new error line (operations whose result does not report the failure,
// such as SendData, and the heartbeat thread's buffer) or wrote fewer lines (a log line that
// could not be built); no more library bytes stayed
// allocated than after the clean run; no more engine handles stayed live.
std::string Judge(const Scenario& scenario, const Run& clean, size_t cleanSize, const Run& run) {
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
    if (run.results[s] != step.expected && !step.failLine.empty() &&
        !HasMessage(run.lines[s], step.failLine)) {
        return where + " failed without logging \"" + step.failLine + "\"";
    }
    if (run.results[s] != step.expected && step.failCode != Step::kAnyCode &&
        run.results[s] != step.failCode) {
        return where + " failed with " + std::to_string(run.results[s]) + " instead of " +
               std::to_string(step.failCode);
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
    return std::string();
}


// With ORBPERIX_ALLOC_SWEEP_LIST set: what the failure of allocation `n` did.
void ListOutcome(const Scenario& scenario, const Run& clean, const Run& run, uint64_t n) {
    if (std::getenv("ORBPERIX_ALLOC_SWEEP_LIST") == nullptr || run.failure.step < 0) {
        return;
    }
    const size_t s = static_cast<size_t>(run.failure.step);
    std::printf("  %s #%llu failed (%zu bytes, step '%s'): result %d", scenario.name.c_str(),
                static_cast<unsigned long long>(n), run.failure.size,
                scenario.steps[s].name.c_str(), run.results[s]);
    bool logged = false;
    for (const Line& line : run.lines[s]) {
        if (line.level == kLevelError && !Contains(clean.lines[s], line)) {
            std::printf(", logged \"%s\"", line.text.c_str());
            logged = true;
        }
    }
    if (!logged) {
        std::printf(", %zu of %zu lines written", run.lines[s].size(), clean.lines[s].size());
    }
    std::printf("\n");
}

// One problem per step of `run` that did not return what the scenario expects.
void ExpectResults(const Scenario& scenario, const Run& run, const std::string& when,
                   Outcome* outcome) {
    for (size_t i = 0; i < scenario.steps.size(); ++i) {
        if (run.results[i] != scenario.steps[i].expected) {
            outcome->problems.push_back(when + ": step '" + scenario.steps[i].name +
                                        "' returned " + std::to_string(run.results[i]));
        }
    }
}

// ---- Runs in a child process ----

void Put(std::string& out, int64_t value) {
    out.append(reinterpret_cast<const char*>(&value), sizeof(value));
}
void PutText(std::string& out, const std::string& text) {
    Put(out, static_cast<int64_t>(text.size()));
    out.append(text);
}

struct Reader {
    const std::string& in;
    size_t at = 0;
    bool ok = true;
    int64_t Get() {
        int64_t value = 0;
        if (at + sizeof(value) > in.size()) {
            ok = false;
            return 0;
        }
        std::memcpy(&value, in.data() + at, sizeof(value));
        at += sizeof(value);
        return value;
    }
    std::string GetText() {
        const int64_t size = Get();
        if (!ok || size < 0 || at + static_cast<size_t>(size) > in.size()) {
            ok = false;
            return std::string();
        }
        std::string text = in.substr(at, static_cast<size_t>(size));
        at += static_cast<size_t>(size);
        return text;
    }
};

// A run and the sizes of its allocations, as bytes for the pipe.
std::string Serialize(const Run& run) {
    std::string out;
    Put(out, static_cast<int64_t>(run.results.size()));
    for (size_t i = 0; i < run.results.size(); ++i) {
        Put(out, run.results[i]);
        Put(out, static_cast<int64_t>(run.lines[i].size()));
        for (const Line& line : run.lines[i]) {
            Put(out, line.level);
            PutText(out, line.text);
        }
    }
    Put(out, run.failure.happened ? 1 : 0);
    Put(out, run.failure.step);
    Put(out, run.failure.onScenarioThread ? 1 : 0);
    Put(out, static_cast<int64_t>(run.failure.size));
    Put(out, static_cast<int64_t>(run.count));
    Put(out, run.liveBytes);
    Put(out, run.liveHandles);
    for (uint64_t n = 1; n <= run.count; ++n) {
        Put(out, static_cast<int64_t>(failalloc::SizeOf(n)));
    }
    return out;
}

bool Deserialize(const std::string& in, Run* run, std::vector<size_t>* sizes) {
    Reader reader{in};
    const int64_t steps = reader.Get();
    for (int64_t i = 0; reader.ok && i < steps; ++i) {
        run->results.push_back(static_cast<int>(reader.Get()));
        const int64_t count = reader.Get();
        std::vector<Line> lines;
        for (int64_t j = 0; reader.ok && j < count; ++j) {
            const int level = static_cast<int>(reader.Get());
            lines.push_back(Line{level, reader.GetText()});
        }
        run->lines.push_back(lines);
    }
    run->failure.happened = reader.Get() != 0;
    run->failure.step = static_cast<int>(reader.Get());
    run->failure.onScenarioThread = reader.Get() != 0;
    run->failure.size = static_cast<size_t>(reader.Get());
    run->count = static_cast<uint64_t>(reader.Get());
    run->liveBytes = reader.Get();
    run->liveHandles = static_cast<int>(reader.Get());
    sizes->assign(1, 0);
    for (uint64_t n = 1; reader.ok && n <= run->count; ++n) {
        sizes->push_back(static_cast<size_t>(reader.Get()));
    }
    return reader.ok;
}

// Runs the scenario in a child process; empty when the child died or its report was cut.
std::string RunInChild(const Scenario& scenario, uint64_t failAt, Run* run,
                       std::vector<size_t>* sizes) {
    int fds[2];
    if (pipe(fds) != 0) {
        return "pipe failed";
    }
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) {
        close(fds[0]);
        close(fds[1]);
        return "fork failed";
    }
    if (child == 0) {
        close(fds[0]);
        const std::string report = Serialize(RunOnce(scenario, failAt));
        size_t written = 0;
        while (written < report.size()) {
            const ssize_t n = write(fds[1], report.data() + written, report.size() - written);
            if (n <= 0) {
                _exit(3);
            }
            written += static_cast<size_t>(n);
        }
        close(fds[1]);
        // No exit handlers: the child's only product is its report.
        _exit(0);
    }
    close(fds[1]);
    std::string report;
    char buffer[4096];
    for (;;) {
        const ssize_t n = read(fds[0], buffer, sizeof(buffer));
        if (n <= 0) {
            break;
        }
        report.append(buffer, static_cast<size_t>(n));
    }
    close(fds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) {
        return "the process died with signal " + std::to_string(WTERMSIG(status)) +
               (WTERMSIG(status) == SIGABRT ? " (abort: terminate or a strict engine violation)" : "");
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || !Deserialize(report, run, sizes)) {
        return "the process ended with status " + std::to_string(status) + " without its report";
    }
    return std::string();
}

}  // namespace

Outcome SweepFresh(const Scenario& scenario) {
    Outcome outcome;
    const auto start = std::chrono::steady_clock::now();
    Run clean;
    std::vector<size_t> sizes;
    const std::string died = RunInChild(scenario, 0, &clean, &sizes);
    if (!died.empty()) {
        outcome.problems.push_back(scenario.name + ", clean run: " + died);
        return outcome;
    }
    ExpectResults(scenario, clean, "clean run", &outcome);
    outcome.points = clean.count;
    if (!outcome.problems.empty()) {
        return outcome;
    }
    for (uint64_t n = 1; n <= clean.count; ++n) {
        Run run;
        std::vector<size_t> ignored;
        std::string problem = RunInChild(scenario, n, &run, &ignored);
        if (problem.empty()) {
            problem = Judge(scenario, clean, sizes[n], run);
            ListOutcome(scenario, clean, run, n);
        }
        if (!problem.empty()) {
            outcome.problems.push_back(scenario.name + " (fresh process), allocation " +
                                       std::to_string(n) + ": " + problem);
        }
    }
    outcome.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return outcome;
}

Outcome Sweep(const Scenario& scenario) {
    Outcome outcome;
    const auto start = std::chrono::steady_clock::now();
    // Process-wide state made on first use (the remote-event sender, stream facets) exists
    // from here on; the clean run is then the same every time.
    RunOnce(scenario, 0);
    const Run clean = RunOnce(scenario, 0);
    std::vector<size_t> sizes(clean.count + 1, 0);
    const bool list = std::getenv("ORBPERIX_ALLOC_SWEEP_LIST") != nullptr;
    for (uint64_t n = 1; n <= clean.count; ++n) {
        sizes[n] = failalloc::SizeOf(n);
        if (list) {
            const int step = failalloc::StepOf(n);
            std::printf("  %s #%llu: %zu bytes, %s thread, step '%s'\n", scenario.name.c_str(),
                        static_cast<unsigned long long>(n), sizes[n],
                        failalloc::ForegroundAt(n) ? "host" : "library",
                        step >= 0 ? scenario.steps[static_cast<size_t>(step)].name.c_str() : "-");
        }
    }
    ExpectResults(scenario, clean, "clean run", &outcome);
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
        const std::string problem = Judge(scenario, clean, sizes[n], run);
        ListOutcome(scenario, clean, run, n);
        if (!problem.empty()) {
            outcome.problems.push_back(scenario.name + ", allocation " + std::to_string(n) + ": " +
                                       problem);
        }
    }
    // The library still works after the whole sweep.
    const Run after = RunOnce(scenario, 0);
    ExpectResults(scenario, after, "after the sweep", &outcome);
    outcome.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return outcome;
}

}  // namespace sweep
