// Several threads at once for a few seconds, run under ThreadSanitizer by the test script: host
// threads posting events, the engine's delivery thread calling back into the provider, a
// thread registering and disconnecting other peers, and the heartbeat thread writing.
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "../unit/input_test_helpers.h"

namespace {

using namespace input_test;
using InputStress = InputTest;

TEST_F(InputStress, PostingCallbacksChurnAndHeartbeatTogether) {
    constexpr auto kDuration = std::chrono::seconds(3);
    std::vector<void*> handles;
    for (const char* peer : {"p0", "p1", "p2"}) {
        ConnectAndOpen(peer);
        handles.push_back(perix_sim_last_handle());
    }
    std::atomic<bool> stop{false};
    std::atomic<int> posted{0};
    std::atomic<int> churned{0};

    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t) {
        threads.emplace_back([&, t] {
            ServiceInfo service = ButtonService(t == 0 ? "p0" : "p1");
            uint32_t i = 0;
            while (!stop.load()) {
                RemoteCtrlEvent event = Event(i % 3 == 0 ? 8u : 6u, (i % 3));
                if (provider->PostRemoteCtrlEvent(&service, &event) == 0) {
                    posted.fetch_add(1);
                }
                // Pauses let the heartbeat in: it beats only 50 ms after the last input.
                if (++i % 500 == 0) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(100));
                }
            }
        });
    }
    // Feeds the engine's delivery thread with notifications for every kind.
    threads.emplace_back([&] {
        const uint8_t bytes[] = {1, 2, 3, 4};
        uint32_t i = 0;
        while (!stop.load()) {
            void* handle = handles[i % handles.size()];
            perix_sim_peer_post_device_change(handle, "p0", i, 0);
            perix_sim_peer_post_service_change(handle, "p1", "svc", i, 1, 2);
            perix_sim_peer_post_data(handle, i, 0, bytes, sizeof(bytes));
            perix_sim_peer_post_button("p2", "btn-1", 1, i % 2, bytes, sizeof(bytes));
            perix_sim_peer_post_button("q1", "btn-1", 1, 0, nullptr, 0);
            ++i;
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
    // Registers and disconnects other peers, whose callbacks may arrive meanwhile.
    threads.emplace_back([&] {
        uint32_t i = 0;
        while (!stop.load()) {
            PERIXInfo info = MakeInfo("q" + std::to_string(i % 4));
            if (provider->RegisterPERIXListener(&info, &listener) == 0) {
                provider->ConnectDevice(&info);
                ServiceInfo service = ButtonService(info.peerDeviceId);
                provider->OpenButton(&service, nullptr);
                perix_sim_peer_post_data(perix_sim_last_handle(), 0, 0, nullptr, 0);
                provider->DisconnectDevice(&info);
                churned.fetch_add(1);
            }
            ++i;
        }
    });

    std::this_thread::sleep_for(kDuration);
    stop.store(true);
    for (std::thread& thread : threads) {
        thread.join();
    }
    perix_sim_peer_flush();
    EXPECT_GT(posted.load(), 100);
    EXPECT_GT(churned.load(), 10);
    EXPECT_GT(perix_sim_peer_delivered_to_callback(), 100);
    EXPECT_GT(perix_sim_peer_heartbeat_count(), 5);
    provider->DeInit();
    const int afterStop = perix_sim_peer_heartbeat_count();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(afterStop, perix_sim_peer_heartbeat_count());
}

}  // namespace
