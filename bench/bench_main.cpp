// The benchmark binary's main: runs the selected benchmarks as usual, then prints the cost
// ratios of posting one remote-control event through the three interfaces (C over C++, the
// header-only C++ layer over C; the goal of each is at most 1.05), and the table of each path
// against its floor measured in the same run (posting, posting from two threads beside the
// machine's own two-thread gain, the stream writes, the engine gate, the notifications).
// A line is left out when one of its benchmarks was not run (a --benchmark_filter).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred) {
                continue;
            }
            // Function name with arguments, "real_time" and "threads:N" where they apply.
            const std::string name = run.run_name.str();
            // Multi-threaded runs measure wall time per event (over all threads).
            const double time =
                run.run_name.time_type == "real_time" ? run.GetAdjustedRealTime()
                                                      : run.GetAdjustedCPUTime();
            if (run.run_type == Run::RT_Aggregate) {
                if (run.aggregate_name == "median") {
                    medians_[name] = time;
                }
                continue;
            }
            auto found = fastest_.find(name);
            if (found == fastest_.end() || time < found->second) {
                fastest_[name] = time;
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    // With repetitions the medians are compared, else the fastest runs.
    void PrintRatio(const char* what, const char* slower, const char* faster,
                    const char* goal = "<= 1.05") const {
        double a = 0;
        double b = 0;
        if (!Times(slower, faster, &a, &b)) {
            return;
        }
        std::printf("%s: %.3fx (%s %.1f ns / %s %.1f ns, %s; goal %s)\n", what, a / b, slower, a,
                    faster, b, Kind(), goal);
    }

    // The gain of two threads over one for `name`, beside the reference loop's gain.
    void PrintThreadGain(const char* what, const char* name, const char* reference) const {
        const std::string one = std::string(name) + "/real_time/threads:1";
        const std::string two = std::string(name) + "/real_time/threads:2";
        const std::string refOne = std::string(reference) + "/real_time/threads:1";
        const std::string refTwo = std::string(reference) + "/real_time/threads:2";
        double t1 = 0, t2 = 0, r1 = 0, r2 = 0;
        if (!Times(one.c_str(), two.c_str(), &t1, &t2) ||
            !Times(refOne.c_str(), refTwo.c_str(), &r1, &r2) || r1 <= 0) {
            return;
        }
        const double gain = t1 / t2;
        const double referenceGain = r1 / r2;
        std::printf("%s: 2 threads %.3fx of 1 (%.1f / %.1f ns per event, wall time); "
                    "reference loop %.3fx; %.3f of the reference gain (%s; goal >= 0.9)\n",
                    what, gain, t1, t2, referenceGain, gain / referenceGain, Kind());
    }

    // `slower` against `base` as ratio, and against the allowance `factor` * base + `extraNs`.
    void PrintAllowance(const char* what, const char* slower, const char* base, double factor,
                        double extraNs) const {
        double a = 0;
        double b = 0;
        if (!Times(slower, base, &a, &b)) {
            return;
        }
        std::printf("%s: %.3fx (%.1f ns / %.1f ns, %s); allowance %.2fx + %.0f ns = %.1f ns: %s\n",
                    what, a / b, a, b, Kind(), factor, extraNs, factor * b + extraNs,
                    a <= factor * b + extraNs ? "met" : "NOT met");
    }

    // The difference of two benchmarks in ns per call.
    void PrintCost(const char* what, const char* slower, const char* base) const {
        double a = 0;
        double b = 0;
        if (!Times(slower, base, &a, &b)) {
            return;
        }
        std::printf("%s: %.1f ns per call (%.1f ns - %.1f ns, %s)\n", what, a - b, a, b, Kind());
    }

private:
    bool Times(const char* a, const char* b, double* ta, double* tb) const {
        const bool medians = medians_.count(a) != 0 && medians_.count(b) != 0;
        const std::map<std::string, double>& times = medians ? medians_ : fastest_;
        const auto x = times.find(a);
        const auto y = times.find(b);
        if (x == times.end() || y == times.end() || y->second <= 0) {
            return false;
        }
        usedMedians_ = medians;
        *ta = x->second;
        *tb = y->second;
        return true;
    }
    const char* Kind() const { return usedMedians_ ? "medians" : "fastest runs"; }

    mutable bool usedMedians_ = false;
    std::map<std::string, double> fastest_;
    std::map<std::string, double> medians_;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatio("post, C over C++", "BM_CapiPost", "BM_CppPost");
    reporter.PrintRatio("post, C++ layer over C", "BM_LayerPost", "BM_CapiPost");
    reporter.PrintRatio("post, C with text lengths over C++", "BM_CapiPostLengths", "BM_CppPost",
                        "none set");
    std::printf("-- paths against their floors (CPU time unless marked) --\n");
    reporter.PrintRatio("PostRemoteCtrlEvent, mouse move, over its floor", "BM_PostMouse/2",
                        "BM_PostMouseFloor", "<= 1.3");
    reporter.PrintThreadGain("PostRemoteCtrlEvent", "BM_PostThreads", "BM_ReferenceLoop");
    reporter.PrintAllowance("PartialRefreshWriteStreamBuffer over the bare engine call",
                            "BM_PartialRefreshWriteStreamBuffer", "BM_PartialRefreshWriteDirect",
                            1.2, 5.0);
    reporter.PrintRatio("AudioWriteStreamBuffer over the bare engine call",
                        "BM_AudioWriteStreamBuffer", "BM_AudioWriteDirect", "keep");
    reporter.PrintCost("engine gate", "BM_GatedEngineCall", "BM_DirectEngineCall");
    reporter.PrintRatio("button notification over its floor", "BM_ButtonNotify",
                        "BM_ButtonNotifyFloor", "none set");
    reporter.PrintRatio("device change notification over its floor", "BM_DeviceChange",
                        "BM_DeviceChangeFloor", "none set");
    benchmark::Shutdown();
    return 0;
}
