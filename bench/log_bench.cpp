// Cost of the developer log on the logging path.
//
// BM_LogLine_DeveloperLogOff: one provider line (a text and a number) built and handed to the
// logging libraries' stand-ins while the developer log is off; BM_LogLine_DeveloperLogOn: the
// same line also handed to a callback that does nothing. Off, the developer log adds one relaxed
// load and a branch to each line: the two "off" rows of a run before and after it was added
// differ by the machine's noise. The stand-ins keep their newest lines (bounded), so the runs do
// not grow the process.
#include <benchmark/benchmark.h>

#include "SinkTestApi.h"
#include "log/developer_log.h"
#include "log/log.h"
#include "orbperix/orbperix_c.h"

namespace {

void Nothing(void*, int, const char*, const char*) {}

void LogLines(benchmark::State& state) {
    int n = 0;
    for (auto _ : state) {
        OrbPerix::log::Trace(LOG_MESSAGE_ERROR, "OrbPerix::Bench::Log", "a provider line ", ++n);
    }
    tracekit_test_clear();
}

void BM_LogLine_DeveloperLogOff(benchmark::State& state) {
    orbperix_set_log_callback(ORBPERIX_C_LOG_TRACE, nullptr, nullptr);
    LogLines(state);
}
BENCHMARK(BM_LogLine_DeveloperLogOff);

void BM_LogLine_DeveloperLogOn(benchmark::State& state) {
    orbperix_set_log_callback(ORBPERIX_C_LOG_TRACE, &Nothing, nullptr);
    LogLines(state);
    orbperix_set_log_callback(ORBPERIX_C_LOG_TRACE, nullptr, nullptr);
}
BENCHMARK(BM_LogLine_DeveloperLogOn);

}  // namespace
