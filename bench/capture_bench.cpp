// Cost of the capture.
//
// BM_GateCall_CaptureOff against BM_GateCall_NoCaptureCode: one engine call through the gate as
// built (with the capture check) and through the same gate without it (Enter, call, Leave).
// Goal: at most 1 ns more per call.
// BM_GateCall_CaptureOn: the same call while a capture runs: the record built on the calling
// thread and offered to the queue. Goal: under 200 ns more than the call with capture off.
// BM_CaptureWriterThroughput: records per second the writer thread sustains into a file, from
// a queue kept full by one producer (the time runs until Stop has flushed them all).
//
// The calls go to the simulated engine's button write switched to "return at once"
// (perix_sim_peer_set_bare_write), loaded from the executable's folder.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "capture/capture.h"
#include "engine/engine_gate.h"
#include "orbperix/manager.h"
#include "platform/platform.h"
#include "perix_sim_peer.h"

namespace {

using OrbPerix::EngineLoad;
namespace engine = OrbPerix::engine;
namespace capture = OrbPerix::capture;

// The gate as it was before the capture: the baseline the capture check is measured against.
template <typename Result, typename... Params, typename... Args>
Result BareCall(const EngineLoad& load, Result (*entry)(Params...), Args&&... args) noexcept {
    if (entry == nullptr || !engine::Enter(load)) {
        return engine::NotAvailable<Result>();
    }
    Result result = entry(std::forward<Args>(args)...);
    engine::Leave();
    return result;
}

struct Engine {
    const EngineLoad* load = nullptr;
    PerixButtonIdentity identity{"bench-peer", 10, "button-0", 8};
    uint8_t packet[26] = {0, 0, 0, 26, 0, 0, 0, 0, 0, 0, 14, 0, 9, 1, 0, 100, 0, 200};
    PerixDataBuffer buffer{packet, sizeof(packet)};

    Engine() {
        auto& manager = OrbPerix::PERIXProviderManager::GetInstance();
        if (!manager.IsManagerInitialized() && manager.Initialize(nullptr, "capture-bench") != 0) {
            return;
        }
        perix_sim_peer_set_bare_write(1);
        load = &engine::Current();
    }
    ~Engine() { perix_sim_peer_set_bare_write(0); }
};

std::string BenchFile(const char* name) {
    return OrbPerix::platform::ExecutableDirectory() + "/" + name;
}

// Runs one engine call per iteration through `gate` (the gate as built, or the bare one).
template <typename Gate>
void RunGateCalls(benchmark::State& state, Gate gate) {
    Engine e;
    if (e.load == nullptr) {
        state.SkipWithError("no engine (is liborbperix beside the benchmark?)");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(gate(*e.load, &e.identity, &e.buffer));
    }
}

void BM_GateCall_NoCaptureCode(benchmark::State& state) {
    RunGateCalls(state, [](const EngineLoad& load, PerixButtonIdentity* id, PerixDataBuffer* b) {
        return BareCall(load, load.button.ButtonWriteStreamBuffer, id, b);
    });
}
BENCHMARK(BM_GateCall_NoCaptureCode);

void BM_GateCall_CaptureOff(benchmark::State& state) {
    RunGateCalls(state, [](const EngineLoad& load, PerixButtonIdentity* id, PerixDataBuffer* b) {
        return engine::Call(load, load.button.ButtonWriteStreamBuffer, id, b);
    });
}
BENCHMARK(BM_GateCall_CaptureOff);

void BM_GateCall_CaptureOn(benchmark::State& state) {
    Engine e;
    const std::string path = BenchFile("capture_bench_on.pcapng");
    capture::Options options;
    options.queueRecords = 16384;
    if (e.load == nullptr || capture::Start(path.c_str(), options) != 0) {
        state.SkipWithError("no engine or no capture file");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            engine::Call(*e.load, e.load->button.ButtonWriteStreamBuffer, &e.identity, &e.buffer));
    }
    capture::Stop();
    state.counters["written"] = static_cast<double>(capture::Written());
    state.counters["dropped"] = static_cast<double>(capture::Dropped());
    std::remove(path.c_str());
}
BENCHMARK(BM_GateCall_CaptureOn);

void BM_CaptureWriterThroughput(benchmark::State& state) {
    Engine e;
    const std::string path = BenchFile("capture_bench_writer.pcapng");
    constexpr int kRecords = 16384;
    uint64_t written = 0;
    for (auto _ : state) {
        capture::Options options;
        options.queueRecords = kRecords;
        if (e.load == nullptr || capture::Start(path.c_str(), options) != 0) {
            state.SkipWithError("no engine or no capture file");
            return;
        }
        for (int i = 0; i < kRecords; ++i) {
            engine::Call(*e.load, e.load->button.ButtonWriteStreamBuffer, &e.identity, &e.buffer);
        }
        capture::Stop();
        written += capture::Written();
    }
    state.counters["records_per_second"] =
        benchmark::Counter(static_cast<double>(written), benchmark::Counter::kIsRate);
    std::remove(path.c_str());
}
BENCHMARK(BM_CaptureWriterThroughput)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
