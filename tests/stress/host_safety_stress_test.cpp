// Everything at once against the strict engine: posting threads with pauses that let the
// heartbeat thread write, engine notifications of every kind from the engine's threads,
// connect/open/disconnect churn, and Finalize at the end while all of it still runs. Run under
// ThreadSanitizer by the test script for 30 s (ORBPERIX_STRESS_SECONDS); a few seconds elsewhere.
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "engine_fixture.h"
#include "perix_sim_peer.h"
#include "perix_sim_streams.h"

namespace {

int Seconds() {
    const char* text = std::getenv("ORBPERIX_STRESS_SECONDS");
    const int seconds = text != nullptr ? std::atoi(text) : 0;
    return seconds > 0 ? seconds : 3;
}

PERIXInfo Info(const std::string& peer) {
    PERIXInfo info;
    std::memset(&info, 0, sizeof(info));
    std::strncpy(info.peerDeviceId, peer.c_str(), sizeof(info.peerDeviceId) - 1);
    info.serverPort = 7000;
    info.connectType = 1;
    return info;
}

std::atomic<uint64_t> g_delivered{0};
int OnDevice(DeviceChangeInfo*) { return static_cast<int>(g_delivered.fetch_add(1) & 0); }
int OnService(ServiceChangeInfo*) { return static_cast<int>(g_delivered.fetch_add(1) & 0); }
int OnData(std::string, BinaryData*) { return static_cast<int>(g_delivered.fetch_add(1) & 0); }
int OnButton(ServiceInfo*, ButtonNotifyInfo*) { return static_cast<int>(g_delivered.fetch_add(1) & 0); }
int OnAudio(ServiceInfo*, AudioData*) { return static_cast<int>(g_delivered.fetch_add(1) & 0); }
int OnRefresh(ServiceInfo*, PartialRefreshData*) { return static_cast<int>(g_delivered.fetch_add(1) & 0); }

class HostSafetyStress : public EngineTest {};

TEST_F(HostSafetyStress, PostingNotificationsChurnAndFinalizeTogether) {
    InitializeManager();
    perix_sim_set_auto_open(1);
    auto input = manager().CreateInputProvider();
    auto source = manager().CreateSourceProvider();
    ASSERT_EQ(0, input->Init());
    ASSERT_EQ(0, source->Init());
    ProviderListener listener{&OnDevice, &OnService, &OnData, &OnAudio, &OnButton, &OnRefresh,
                              nullptr, nullptr};
    PERIXInfo stable = Info("stable");
    ASSERT_EQ(0, input->RegisterPERIXListener(&stable, &listener));
    ASSERT_EQ(0, input->ConnectDevice(&stable));
    void* stableHandle = perix_sim_last_handle();
    ServiceInfo button{"stable", "btn-1", 6};
    ASSERT_EQ(0, input->OpenButton(&button, nullptr));
    PERIXInfo streams = Info("streams");
    ASSERT_EQ(0, source->RegisterPERIXListener(&streams, &listener));

    std::atomic<bool> stop{false};
    std::atomic<uint64_t> posts{0};
    std::vector<std::thread> threads;
    const auto start = std::chrono::steady_clock::now();
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&, t] {
            RemoteCtrlEvent event;
            std::memset(&event, 0, sizeof(event));
            event.type = t % 2 == 0 ? 6u : 8u;  // mouse and wheel events keep the heartbeat up
            ServiceInfo service{"stable", "btn-1", 6};
            uint8_t pcm[64] = {};
            ServiceInfo audio{"streams", "audio", 3};
            for (uint32_t i = 0; !stop.load(std::memory_order_relaxed); ++i) {
                // Every other 200 ms all posting pauses: the heartbeat beats 50 ms after an input.
                const auto since = std::chrono::steady_clock::now() - start;
                if (since / std::chrono::milliseconds(200) % 2 != 0) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(10));
                    continue;
                }
                event.payload.mouse.action = i % 3;
                if (input->PostRemoteCtrlEvent(&service, &event) == 0) {
                    posts.fetch_add(1, std::memory_order_relaxed);
                }
                source->AudioWriteStreamBuffer(&audio, pcm, sizeof(pcm));
            }
        });
    }
    // Connect/disconnect churn on peers of both kinds, with the operations that use a handle.
    threads.emplace_back([&] {
        for (int i = 0; !stop.load(std::memory_order_relaxed); ++i) {
            PERIXInfo churn = Info("churn-" + std::to_string(i % 4));
            if (i % 2 == 0) {
                input->RegisterPERIXListener(&churn, &listener);
                input->ConnectDevice(&churn);
                ServiceInfo svc{churn.peerDeviceId, "virt", 2};
                ServiceInfo churnButton{churn.peerDeviceId, "btn-1", 6};
                input->OpenButton(&churnButton, nullptr);
                perix_sim_peer_post_data(perix_sim_last_handle(), 0, 0, nullptr, 0);
                input->StartDeviceService(&svc, nullptr);
                input->SendByHandler(nullptr, nullptr, nullptr);
                input->DisconnectDevice(&churn);
            } else {
                source->RegisterPERIXListener(&churn, &listener);
                source->ConnectDevice(&churn);
                std::string id = churn.peerDeviceId;
                uint8_t byte = 1;
                BinaryData data{0, 0, &byte, 1};
                source->SendBinaryData(&id, &data);
                source->DisconnectDevice(&churn);
            }
        }
    });
    // The engine's threads: notifications of every kind, some for peers that come and go.
    threads.emplace_back([&] {
        const uint8_t bytes[16] = {1, 2, 3};
        for (int i = 0; !stop.load(std::memory_order_relaxed); ++i) {
            perix_sim_peer_post_device_change(stableHandle, "stable", 1, 2);
            perix_sim_peer_post_service_change(stableHandle, "stable", "svc", 1, 2, 3);
            perix_sim_peer_post_data(stableHandle, 1, 2, bytes, sizeof(bytes));
            perix_sim_peer_post_button(i % 2 == 0 ? "stable" : "churn-0", "btn-1", 2, 0, bytes, 4);
            // The channel of a churning peer reported open, then closed.
            perix_sim_peer_post_button("churn-2", "btn-1", 1, static_cast<uint32_t>(i % 2), bytes, 4);
            perix_sim_peer_post_button("churn-0", "btn-1", 1, 0, nullptr, 0);
            perix_sim_deliver_audio(i % 2 == 0 ? "streams" : "churn-1", "audio", 0, 1, 2, bytes,
                                    sizeof(bytes));
            perix_sim_deliver_refresh("streams", "refresh", 1, 2, bytes, sizeof(bytes));
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });

    std::this_thread::sleep_for(std::chrono::seconds(Seconds()));
    EXPECT_GT(perix_sim_peer_heartbeat_count(), 5);
    EXPECT_GT(perix_sim_peer_delivered_to_callback(), 100);
    // Finalize while everything still runs: calls in flight finish, later ones get -13.
    manager().Finalize();
    EXPECT_EQ(0, perix_sim_engine_mapped());
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    perix_sim_peer_flush();
    perix_sim_deliveries_flush();
    input->DeInit();
    source->DeInit();
    manager().DestoryInputProvider(input);
    manager().DestorySourceProvider(source);
    EXPECT_GT(posts.load(), 100u);
    EXPECT_GT(g_delivered.load(), 0u);
    EXPECT_EQ(0, perix_sim_violation_count());
}

}  // namespace
