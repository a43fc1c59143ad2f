// The source session of the demo: a peer that receives a generated tone and a few screen
// frames, and sends audio back. The tone is written as fast as the engine takes it (faster
// than real time), in 20 ms buffers.
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "demo.h"
#include "demo_step.h"
#include "perix_sim.h"
#include "perix_sim_streams.h"

namespace {

std::atomic<uint32_t> g_audioBack{0};
std::atomic<uint64_t> g_audioBackBytes{0};
std::atomic<uint32_t> g_refreshBack{0};

int OnAudioBack(ServiceInfo*, AudioData* data) {
    g_audioBack.fetch_add(1, std::memory_order_relaxed);
    g_audioBackBytes.fetch_add(data->dataLen, std::memory_order_relaxed);
    return 0;
}
int OnRefreshBack(ServiceInfo*, PartialRefreshData*) {
    g_refreshBack.fetch_add(1, std::memory_order_relaxed);
    return 0;
}

bool Expect(const char* what, int result, int expected = 0) {
    DemoStep(what, result);
    if (result != expected) {
        std::printf("      unexpected: wanted %d\n", expected);
        return false;
    }
    return true;
}

constexpr int kRate = 48000;
constexpr int kChannels = 2;
constexpr int kFrameMs = 20;
constexpr int kSamplesPerBuffer = kRate * kFrameMs / 1000;  // per channel
constexpr int kSeconds = 3;

}  // namespace

bool RunSourceSession(OrbPerix::PERIXProviderManager& manager) {
    std::printf("== Source session: audio and partial refresh to a peer\n");
    bool ok = true;
    std::shared_ptr<OrbPerix::ISourceProvider> source = manager.CreateSourceProvider();
    DemoStep("CreateSourceProvider", source != nullptr ? 0 : -1);
    if (source == nullptr) {
        return false;
    }
    PERIXInfo info;
    std::memset(&info, 0, sizeof(info));
    std::strcpy(info.localDeviceId, "demo-pc");
    std::strcpy(info.peerDeviceId, "demo-speaker");
    info.serverPort = 7100;
    info.connectType = 1;
    ProviderListener listener{};
    listener.onAudioData = &OnAudioBack;
    listener.onPartialRefreshData = &OnRefreshBack;

    ok = Expect("Source Init", source->Init()) && ok;
    ok = Expect("Source RegisterPERIXListener demo-speaker",
                source->RegisterPERIXListener(&info, &listener)) && ok;
    ok = Expect("Source ConnectDevice demo-speaker", source->ConnectDevice(&info)) && ok;

    ServiceInfo audio{"demo-speaker", "audio-out", 2};  // goes to the engine as type 1
    AudioParam param{kRate, kChannels, 16, 0, 0, 0, kSamplesPerBuffer};
    ok = Expect("OpenAudio (48 kHz stereo, 16 bit)", source->OpenAudio(&audio, &param)) && ok;

    // A 440 Hz tone, little-endian 16-bit samples, interleaved.
    std::vector<uint8_t> buffer(kSamplesPerBuffer * kChannels * 2);
    const double step = 2.0 * 3.14159265358979323846 * 440.0 / kRate;
    uint64_t sample = 0;
    const int buffers = kSeconds * 1000 / kFrameMs;
    for (int b = 0; b < buffers; ++b) {
        for (int i = 0; i < kSamplesPerBuffer; ++i, ++sample) {
            const auto value = static_cast<int16_t>(8000.0 * std::sin(step * static_cast<double>(sample)));
            const auto bits = static_cast<uint16_t>(value);
            for (int c = 0; c < kChannels; ++c) {
                const size_t at = static_cast<size_t>((i * kChannels + c) * 2);
                buffer[at] = static_cast<uint8_t>(bits & 0xFF);
                buffer[at + 1] = static_cast<uint8_t>(bits >> 8);
            }
        }
        source->AudioWriteStreamBuffer(&audio, buffer.data(), static_cast<uint32_t>(buffer.size()));
    }
    perix_sim_stream_stats audioStats{};
    perix_sim_stream_stats_of(PERIX_SIM_STREAM_AUDIO, &audioStats);
    DemoStep("AudioWriteStreamBuffer x150 (3 s of 440 Hz in 20 ms buffers)",
             audioStats.buffers == static_cast<uint64_t>(buffers) ? 0 : -1);
    ok = ok && audioStats.buffers == static_cast<uint64_t>(buffers);

    // The peer talks back from its own thread: ten 20 ms buffers of audio and two refresh
    // acknowledgements.
    for (int b = 0; b < 10; ++b) {
        perix_sim_deliver_audio("demo-speaker", "audio-in", 1, 0, 0, buffer.data(),
                                static_cast<uint32_t>(buffer.size()));
    }
    perix_sim_deliveries_flush();
    DemoStep("Peer sends 10 audio buffers back (engine thread)",
             g_audioBack.load() == 10 ? 0 : -1);
    ok = ok && g_audioBack.load() == 10;
    ok = Expect("CloseAudio", source->CloseAudio(&audio)) && ok;

    ServiceInfo refresh{"demo-speaker", "screen", 11};
    ok = Expect("OpenPartialRefresh (type 11)", source->OpenPartialRefresh(&refresh)) && ok;
    std::vector<uint8_t> frame(64 * 64 * 4);
    int written = 0;
    for (int f = 0; f < 5; ++f) {
        std::memset(frame.data(), 0x20 * f, frame.size());
        written += source->PartialRefreshWriteStreamBuffer(&refresh, frame.data(),
                                                           static_cast<int32_t>(frame.size())) == 0;
    }
    DemoStep("PartialRefreshWriteStreamBuffer x5 (64x64 RGBA)", written == 5 ? 0 : -1);
    ok = ok && written == 5;
    perix_sim_deliver_refresh("demo-speaker", "screen", 1, 0, frame.data(), 16);
    perix_sim_deliver_refresh("demo-speaker", "screen", 2, 0, frame.data(), 16);
    perix_sim_deliveries_flush();
    DemoStep("Peer sends 2 partial-refresh notifications back", g_refreshBack.load() == 2 ? 0 : -1);
    ok = ok && g_refreshBack.load() == 2;
    ok = Expect("ClosePartialRefresh", source->ClosePartialRefresh(&refresh)) && ok;
    ServiceInfo wrong{"demo-speaker", "screen", 10};
    ok = Expect("OpenPartialRefresh with type 10 (refused)", source->OpenPartialRefresh(&wrong), -2) && ok;

    ok = Expect("Source DisconnectDevice demo-speaker", source->DisconnectDevice(&info)) && ok;
    source->DeInit();
    DemoStep("Source DeInit", 0);
    const bool destroyed = manager.DestorySourceProvider(source);
    source.reset();
    DemoStep("DestorySourceProvider", destroyed ? 0 : -1);
    ok = ok && destroyed;

    perix_sim_stream_stats refreshStats{};
    perix_sim_stream_stats_of(PERIX_SIM_STREAM_AUDIO, &audioStats);
    perix_sim_stream_stats_of(PERIX_SIM_STREAM_REFRESH, &refreshStats);
    std::printf("   source counts: audio out %llu buffers / %llu bytes (checksum %016llx), "
                "audio back %u buffers / %llu bytes; refresh out %llu frames / %llu bytes, "
                "refresh back %u\n",
                static_cast<unsigned long long>(audioStats.buffers),
                static_cast<unsigned long long>(audioStats.bytes),
                static_cast<unsigned long long>(audioStats.checksum), g_audioBack.load(),
                static_cast<unsigned long long>(g_audioBackBytes.load()),
                static_cast<unsigned long long>(refreshStats.buffers),
                static_cast<unsigned long long>(refreshStats.bytes), g_refreshBack.load());
    return ok;
}
