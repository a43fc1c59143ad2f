// The allocation-failure sweep: a scenario is a list of steps run in order on one thread; the
// sweep runs it once counting the library's allocations (K), then once per N = 1..K with the
// N-th allocation failing, and judges every run.
#ifndef ORBPERIX_TESTS_ALLOC_SWEEP_H_
#define ORBPERIX_TESTS_ALLOC_SWEEP_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace sweep {

struct Step {
    Step(std::string stepName, std::function<int()> body, int expectedResult = 0,
         uint64_t backgroundAllocations = 0)
        : name(std::move(stepName)),
          run(std::move(body)),
          expected(expectedResult),
          background(backgroundAllocations) {}

    std::string name;
    // Runs the operation; its result is compared with `expected`. Steps of operations that
    // return no code (notifications, void operations) return 0 when the effect was seen.
    std::function<int()> run;
    int expected = 0;
    // Library allocations other threads make because of this step without the step waiting
    // for them (the heartbeat thread's buffer): waited for after a successful step, so that
    // the numbering of allocations is the same in every run.
    uint64_t background = 0;
    // When the failing allocation has this size, this exact line must have been logged.
    std::vector<std::pair<size_t, std::string>> lines;
    // When the step fails (whatever allocation failed), this exact line must have been logged
    // and, unless kAnyCode, the step must have returned `failCode`.
    std::string failLine;
    static constexpr int kAnyCode = -0x7fffffff;
    int failCode = kAnyCode;
};

struct Scenario {
    std::string name;
    std::vector<Step> steps;
    // Brings the process back to a clean state after a run (not counted): releases whatever
    // a failed step left behind, finalises the manager, resets the simulated engine.
    std::function<void()> cleanup;
};

struct Outcome {
    uint64_t points = 0;                // K: the library's allocations in one run
    std::vector<std::string> problems;  // one line per unhandled failure
    double seconds = 0;
};

// Runs the scenario once to warm up process-wide state, then the sweep, all in this process.
Outcome Sweep(const Scenario& scenario);
// The same sweep with every run (the clean one included) in a fresh child process, so that
// the allocations the library makes once per process on first use (the remote-event sender,
// the C handle table's slots, stream facets) are failed too, and a crash or terminate of a
// run shows as that child's death. REQUIRES: no other thread in this process.
Outcome SweepFresh(const Scenario& scenario);

}  // namespace sweep

#endif  // ORBPERIX_TESTS_ALLOC_SWEEP_H_
