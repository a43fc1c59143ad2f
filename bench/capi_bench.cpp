// Cost of the flat C interface: posting a remote-control event through
// orbperix_input_post_remote_ctrl_event against IInputProvider::PostRemoteCtrlEvent on the same
// provider object and session, in the same binary, and through the header-only C++ layer
// (orbperix.hpp) on the same session. Goals: BM_CapiPost within 1.05x of BM_CppPost, and
// BM_LayerPost within 1.05x of BM_CapiPost (bench_main.cpp prints both ratios).
//
// Both run against the simulated engine loaded from the executable's folder, with its button
// write switched to "return at once" (perix_sim_peer_set_bare_write) so that the library's own
// work is what is measured. The C path's extra work is the handle lookup (lock-free), measuring
// NUL-terminated texts (BM_CapiPostLengths passes their lengths instead, as the layer does) and
// the copy of the bytes of the event record that its kind uses.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>

#include "capi/handle_table.h"
#include "orbperix/orbperix.hpp"
#include "orbperix/orbperix_c.h"
#include "orbperix/providers.h"
#include "perix_sim_peer.h"

namespace {

// Switches the simulated engine's button write to "bare" through the engine core's control
// interface (the library loads the engine module, which forwards to the same core).
bool SetBareWrite(int on) {
    perix_sim_peer_set_bare_write(on);
    return true;
}

// One connected input session, opened through the C interface.
struct Session {
    orbperix_input_handle input = 0;
    orbperix_device_info device{};
    orbperix_service service{};
    orbperix_remote_event event{};
    bool ok = false;

    Session() {
        if (orbperix_is_initialized() == 0 && orbperix_initialize(nullptr, "capi-bench") != 0) {
            return;
        }
        if (!SetBareWrite(1)) {
            return;
        }
        input = orbperix_create_input_provider();
        std::strcpy(device.peer_device_id, "bench-peer");
        device.connect_type = 1;
        const orbperix_listener listener{};
        service = orbperix_service{"bench-peer", -1, "button-0", -1, 6};
        std::memset(&event, 0, sizeof(event));
        event.type = ORBPERIX_REMOTE_MOUSE;
        event.payload.mouse.action = 2;
        event.payload.mouse.button = 1;
        event.payload.mouse.coords[0] = 100;
        event.payload.mouse.coords[1] = 200;
        ok = input != 0 && orbperix_input_init(input) == 0 &&
             orbperix_input_register_listener(input, &device, &listener, nullptr) == 0 &&
             orbperix_input_connect_device(input, &device) == 0;
    }
    ~Session() {
        orbperix_input_disconnect_device(input, &device);
        orbperix_input_deinit(input);
        orbperix_destroy_input_provider(input);
        SetBareWrite(0);
    }
};

void BM_CapiPost(benchmark::State& state) {
    Session s;
    if (!s.ok) {
        state.SkipWithError("no session (is liborbperix beside the benchmark?)");
        return;
    }
    if (orbperix_input_post_remote_ctrl_event(s.input, &s.service, &s.event) != 0) {
        state.SkipWithError("the post failed");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(orbperix_input_post_remote_ctrl_event(s.input, &s.service, &s.event));
    }
}
BENCHMARK(BM_CapiPost);

// The same with the texts' lengths given: what measuring the NUL-terminated texts costs.
void BM_CapiPostLengths(benchmark::State& state) {
    Session s;
    orbperix_service service = s.service;
    service.device_id_len = static_cast<int32_t>(std::strlen(service.device_id));
    service.service_id_len = static_cast<int32_t>(std::strlen(service.service_id));
    if (!s.ok || orbperix_input_post_remote_ctrl_event(s.input, &service, &s.event) != 0) {
        state.SkipWithError("no session, or the post failed");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(orbperix_input_post_remote_ctrl_event(s.input, &service, &s.event));
    }
}
BENCHMARK(BM_CapiPostLengths);

void BM_CppPost(benchmark::State& state) {
    Session s;
    if (!s.ok) {
        state.SkipWithError("no session (is liborbperix beside the benchmark?)");
        return;
    }
    // The very object behind the C handle.
    const OrbPerix::capi::HandleTable::Use use =
        OrbPerix::capi::HandleTable::Instance().Acquire(s.input, OrbPerix::capi::HandleKind::kInput);
    auto* provider = static_cast<OrbPerix::IInputProvider*>(use.Object());
    ServiceInfo service{"bench-peer", "button-0", 6};
    RemoteCtrlEvent event;
    std::memcpy(&event, &s.event, sizeof(event));
    if (provider->PostRemoteCtrlEvent(&service, &event) != 0) {
        state.SkipWithError("the post failed");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(provider->PostRemoteCtrlEvent(&service, &event));
    }
}
BENCHMARK(BM_CppPost);

void BM_LayerPost(benchmark::State& state) {
    Session s;
    if (!s.ok) {
        state.SkipWithError("no session (is liborbperix beside the benchmark?)");
        return;
    }
    // The layer's owner of a provider of its own, on the session the C one opened (sessions of
    // a kind are process-wide).
    orbperix::InputProvider input = orbperix::InputProvider::Create();
    const orbperix::Service service{"bench-peer", "button-0", 6};
    if (!input.PostRemoteCtrlEvent(service, s.event).ok()) {
        state.SkipWithError("the post failed");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(input.PostRemoteCtrlEvent(service, s.event));
    }
}
BENCHMARK(BM_LayerPost);

}  // namespace
