// Engine threads deliver audio and partial-refresh data while host threads register, connect
// and disconnect source peers. Run under ThreadSanitizer by the test script: any data race
// between the deliveries and the session changes fails it.
#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "engine_fixture.h"
#include "perix_sim_streams.h"

namespace {

std::atomic<uint64_t> g_audio{0};
std::atomic<uint64_t> g_refresh{0};
std::atomic<uint64_t> g_badBytes{0};

// Every delivered payload is bytes 0, 1, 2, ...: a torn or stale copy shows up here.
void CheckBytes(const uint8_t* data, uint32_t length) {
    for (uint32_t i = 0; i < length; ++i) {
        if (data[i] != static_cast<uint8_t>(i)) {
            g_badBytes.fetch_add(1, std::memory_order_relaxed);
            return;
        }
    }
}
int OnAudio(ServiceInfo*, AudioData* data) {
    CheckBytes(data->data, data->dataLen);
    g_audio.fetch_add(1, std::memory_order_relaxed);
    return 0;
}
int OnRefresh(ServiceInfo*, PartialRefreshData* data) {
    CheckBytes(data->data, data->dataLen);
    g_refresh.fetch_add(1, std::memory_order_relaxed);
    return 0;
}

PERIXInfo Info(const std::string& peer) {
    PERIXInfo info;
    std::memset(&info, 0, sizeof(info));
    std::strncpy(info.peerDeviceId, peer.c_str(), sizeof(info.peerDeviceId) - 1);
    info.serverPort = 1;
    info.connectType = 1;
    return info;
}

using SourceStress = EngineTest;

TEST_F(SourceStress, DeliveriesWhileHostThreadsRegisterAndDisconnectPeers) {
    InitializeManager();
    auto source = manager().CreateSourceProvider();
    ASSERT_EQ(0, source->Init());
    constexpr int kHosts = 3;
    constexpr int kPeersPerHost = 4;
    std::atomic<bool> stop{false};
    std::atomic<uint64_t> hostRounds{0};
    std::atomic<int> hostErrors{0};

    std::vector<std::thread> threads;
    for (int h = 0; h < kHosts; ++h) {
        threads.emplace_back([&, h] {
            ProviderListener listener{};
            listener.onAudioData = &OnAudio;
            listener.onPartialRefreshData = &OnRefresh;
            while (!stop.load(std::memory_order_relaxed)) {
                for (int p = 0; p < kPeersPerHost; ++p) {
                    PERIXInfo info = Info("peer-" + std::to_string(h) + "-" + std::to_string(p));
                    ServiceInfo refresh{info.peerDeviceId, "scr", 11};
                    uint8_t frame[16] = {};
                    if (source->RegisterPERIXListener(&info, &listener) != 0 ||
                        source->ConnectDevice(&info) != 0 ||
                        source->PartialRefreshWriteStreamBuffer(&refresh, frame, 16) != 0 ||
                        source->DisconnectDevice(&info) != 0) {
                        hostErrors.fetch_add(1, std::memory_order_relaxed);
                    }
                }
                hostRounds.fetch_add(1, std::memory_order_relaxed);
            }
        });
    }
    uint8_t payload[512];
    for (size_t i = 0; i < sizeof(payload); ++i) {
        payload[i] = static_cast<uint8_t>(i);
    }
    // Two engine threads calling back directly, and the peer's own delivery thread.
    for (int e = 0; e < 2; ++e) {
        threads.emplace_back([&, e] {
            uint32_t n = 0;
            while (!stop.load(std::memory_order_relaxed)) {
                const std::string device =
                    "peer-" + std::to_string(n % kHosts) + "-" + std::to_string(n % kPeersPerHost);
                const PerixServiceId id{device.data(), static_cast<uint32_t>(device.size()), "s",
                                        1, 3};
                PerixStreamNotify notify{n, 0, 0, 1u + (n * 37u) % 512u, payload};
                if (e == 0) {
                    perix_sim_fire_audio(&id, &notify);
                } else {
                    perix_sim_fire_refresh(&id, &notify);
                }
                ++n;
            }
        });
    }
    threads.emplace_back([&] {
        uint32_t n = 0;
        while (!stop.load(std::memory_order_relaxed)) {
            const std::string device = "peer-0-" + std::to_string(n % kPeersPerHost);
            perix_sim_deliver_audio(device.c_str(), "spk", 3, n, 0, payload, 64);
            perix_sim_deliver_refresh(device.c_str(), "scr", n, 0, payload, 128);
            perix_sim_deliveries_flush();
            ++n;
        }
    });

    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    stop.store(true);
    for (std::thread& t : threads) {
        t.join();
    }
    source->DeInit();
    manager().DestorySourceProvider(source);

    EXPECT_EQ(0, hostErrors.load()) << "each host thread owns its peers: no step may fail";
    EXPECT_GT(hostRounds.load(), 0u);
    EXPECT_GT(g_audio.load() + g_refresh.load(), 0u) << "some deliveries met a live session";
    EXPECT_EQ(0u, g_badBytes.load());
}

}  // namespace
