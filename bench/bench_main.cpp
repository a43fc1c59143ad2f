// The benchmark binary's main: runs the selected benchmarks as usual, then prints the cost
// ratios of posting one remote-control event through the three interfaces (C over C++, the
// header-only C++ layer over C; the goal of each is at most 1.05).
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
            const std::string name = run.run_name.function_name;
            const double time = run.GetAdjustedCPUTime();
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
    void PrintRatio(const char* what, const char* slower, const char* faster) const {
        const bool medians = medians_.count(slower) != 0 && medians_.count(faster) != 0;
        const std::map<std::string, double>& times = medians ? medians_ : fastest_;
        const auto a = times.find(slower);
        const auto b = times.find(faster);
        if (a == times.end() || b == times.end() || b->second <= 0) {
            return;
        }
        std::printf("%s: %.3fx (%s %.1f ns / %s %.1f ns, CPU time, %s; goal <= 1.05)\n", what,
                    a->second / b->second, slower, a->second, faster, b->second,
                    medians ? "medians" : "fastest runs");
    }

private:
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
    benchmark::Shutdown();
    return 0;
}
