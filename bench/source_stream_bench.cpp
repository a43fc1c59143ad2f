// The source provider's stream paths against their floors.
//
// Delivery: AudioNotify / PartialRefreshNotify of 64 KiB, 1 MiB and 4 MiB to a host listener,
// next to BM_CopyFloor of the same size (one allocation, one memcpy, one free: the private copy
// that every delivery must make). Goal: at least 0.8x the floor's bytes per second.
// Writes: AudioWriteStreamBuffer / PartialRefreshWriteStreamBuffer per buffer, next to a direct
// call of the same engine entry with the records built by hand. Goal: at most 1.2x its time.
//
// The engine here is a table of trivial functions in this binary, so that only the library's
// own work is measured.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "engine/engine_gate.h"
#include "provider/source_provider.h"

namespace {

int g_handleToken = 0;
void* FakeCreate(const PERIXInfo*) { return &g_handleToken; }
int FakeOk2(void*, const PerixEngineListener*) { return 0; }
int FakeStart(void*, const PERIXInfo*) { return 0; }
int FakeRelease(void*, void*, void*) { return 0; }
int FakeRegister(const PerixStreamCallback*) { return 0; }
int FakeAudioWrite(const PerixServiceId* id, const PerixAudioBuffer* buffer) {
    benchmark::DoNotOptimize(id);
    benchmark::DoNotOptimize(buffer);
    return 0;
}
int FakeRefreshWrite(const PerixServiceId* id, const PerixDataBuffer* buffer) {
    benchmark::DoNotOptimize(id);
    benchmark::DoNotOptimize(buffer);
    return 0;
}

int OnAudio(ServiceInfo* service, AudioData* data) {
    benchmark::DoNotOptimize(service);
    benchmark::DoNotOptimize(data->data[data->dataLen - 1]);
    return 0;
}
int OnRefresh(ServiceInfo* service, PartialRefreshData* data) {
    benchmark::DoNotOptimize(service);
    benchmark::DoNotOptimize(data->data[data->dataLen - 1]);
    return 0;
}

// One source provider over the fake engine with one registered peer, "bench-peer".
struct Rig {
    OrbPERIXHandler main{};
    AudioHandlerSource audio{};
    RefreshHandlerSource refresh{};
    std::unique_ptr<OrbPerix::SourceProvider> source;
    const OrbPerix::EngineLoad* load = nullptr;
    PERIXInfo info{};
    ProviderListener listener{};

    Rig() {
        main.PERIXCreateServiceHandle = &FakeCreate;
        main.PERIXRegisterListener = &FakeOk2;
        main.PERIXStartService = &FakeStart;
        main.PERIXReleaseServiceHandle = &FakeRelease;
        audio.RegisterCallback = &FakeRegister;
        audio.AudioWriteStreamBuffer = &FakeAudioWrite;
        refresh.RegisterCallback = &FakeRegister;
        refresh.PartialRefreshWriteStreamBuffer = &FakeRefreshWrite;
        // A live engine load made of the fakes: the gate lets calls through as with a real one.
        OrbPerix::engine::Reserve();
        load = &OrbPerix::engine::Publish(main, ButtonHandlerSource{}, audio, refresh);
        source.reset(new OrbPerix::SourceProvider(*load));
        std::strcpy(info.peerDeviceId, "bench-peer");
        info.connectType = 1;
        listener.onAudioData = &OnAudio;
        listener.onPartialRefreshData = &OnRefresh;
        source->Init();
        source->RegisterPERIXListener(&info, &listener);
    }
    ~Rig() { source->DeInit(); }
};

Rig& TheRig() {
    static Rig rig;
    return rig;
}

// The rig's load stops being live when a benchmark of the real engine initialises it (and the
// rig's own load made theirs stale): its writes would then measure the refusal path.
bool RigIsLive(benchmark::State& state) {
    if (!OrbPerix::engine::IsLive(*TheRig().load)) {
        state.SkipWithError("the rig's engine load is not live (another benchmark published one)");
        return false;
    }
    return true;
}

const char kDevice[] = "bench-peer";
const char kService[] = "stream";

template <int (*Notify)(const void*, const void*)>
void BM_Deliver(benchmark::State& state) {
    TheRig();
    const size_t size = static_cast<size_t>(state.range(0));
    std::vector<uint8_t> payload(size, 0x42);
    const PerixServiceId id{kDevice, sizeof(kDevice) - 1, kService, sizeof(kService) - 1, 1};
    const PerixStreamNotify notify{1, 2, 0, static_cast<uint32_t>(size), payload.data()};
    for (auto _ : state) {
        if (Notify(&id, &notify) != 0) {
            state.SkipWithError("delivery failed");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

void BM_AudioNotify(benchmark::State& state) { BM_Deliver<&OrbPerix::SourceProvider::AudioNotify>(state); }
void BM_PartialRefreshNotify(benchmark::State& state) {
    BM_Deliver<&OrbPerix::SourceProvider::PartialRefreshNotify>(state);
}

void BM_CopyFloor(benchmark::State& state) {
    const size_t size = static_cast<size_t>(state.range(0));
    std::vector<uint8_t> payload(size, 0x42);
    for (auto _ : state) {
        uint8_t* copy = new (std::nothrow) uint8_t[size];
        std::memcpy(copy, payload.data(), size);
        benchmark::DoNotOptimize(copy[size - 1]);
        delete[] copy;
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

BENCHMARK(BM_AudioNotify)->Arg(64 << 10)->Arg(1 << 20)->Arg(4 << 20);
BENCHMARK(BM_PartialRefreshNotify)->Arg(64 << 10)->Arg(1 << 20)->Arg(4 << 20);
BENCHMARK(BM_CopyFloor)->Arg(64 << 10)->Arg(1 << 20)->Arg(4 << 20);

uint8_t g_buffer[3840];  // 20 ms of 48 kHz stereo 16-bit audio

void BM_AudioWriteStreamBuffer(benchmark::State& state) {
    if (!RigIsLive(state)) {
        return;
    }
    Rig& rig = TheRig();
    ServiceInfo service{kDevice, kService, 2};
    for (auto _ : state) {
        rig.source->AudioWriteStreamBuffer(&service, g_buffer, sizeof(g_buffer));
    }
}

void BM_AudioWriteDirect(benchmark::State& state) {
    if (!RigIsLive(state)) {
        return;
    }
    Rig& rig = TheRig();
    ServiceInfo service{kDevice, kService, 2};
    for (auto _ : state) {
        const PerixServiceId id{service.deviceId.data(),
                                static_cast<uint32_t>(service.deviceId.size()),
                                service.serviceId.data(),
                                static_cast<uint32_t>(service.serviceId.size()), 3};
        const PerixAudioBuffer buffer{g_buffer, sizeof(g_buffer), 3, 0, 1, 0};
        rig.audio.AudioWriteStreamBuffer(&id, &buffer);
    }
}

void BM_PartialRefreshWriteStreamBuffer(benchmark::State& state) {
    if (!RigIsLive(state)) {
        return;
    }
    Rig& rig = TheRig();
    ServiceInfo service{kDevice, kService, 11};
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            rig.source->PartialRefreshWriteStreamBuffer(&service, g_buffer, sizeof(g_buffer)));
    }
}

void BM_PartialRefreshWriteDirect(benchmark::State& state) {
    if (!RigIsLive(state)) {
        return;
    }
    Rig& rig = TheRig();
    ServiceInfo service{kDevice, kService, 11};
    for (auto _ : state) {
        const PerixServiceId id{service.deviceId.data(),
                                static_cast<uint32_t>(service.deviceId.size()),
                                service.serviceId.data(),
                                static_cast<uint32_t>(service.serviceId.size()), 0};
        const PerixDataBuffer buffer{g_buffer, sizeof(g_buffer)};
        benchmark::DoNotOptimize(rig.refresh.PartialRefreshWriteStreamBuffer(&id, &buffer));
    }
}

BENCHMARK(BM_AudioWriteStreamBuffer);
BENCHMARK(BM_AudioWriteDirect);
BENCHMARK(BM_PartialRefreshWriteStreamBuffer);
BENCHMARK(BM_PartialRefreshWriteDirect);

}  // namespace
