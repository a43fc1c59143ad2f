// The shortest host on the header-only C++ layer: builds with any C++17 compiler against the
// library's C interface (link OrbPerixProvider; no C++ symbol of the library is used).
#include <cstdio>
#include <cstring>

#include <orbperix/orbperix.hpp>

int main() {
    orbperix::Manager engine;  // finalises the engine when it goes
    if (!engine.Initialize("hello host").ok()) {
        return 1;
    }
    orbperix::InputProvider input = orbperix::InputProvider::Create();
    orbperix::DeviceInfo peer{};
    std::strcpy(peer.peer_device_id, "peer-1");
    peer.connect_type = 1;
    orbperix::Listener listener;
    listener.on_device_change = [](const orbperix::DeviceChange& change) {
        std::printf("peer %.*s changed\n", static_cast<int>(change.device_id.size()),
                    change.device_id.data());
    };
    if (!input.Init().ok() || !input.RegisterListener(peer, std::move(listener)).ok() ||
        !input.ConnectDevice(peer).ok()) {
        return 1;
    }
    const orbperix::Service button{"peer-1", "button-0", 6};
    orbperix::RemoteEvent key{};
    key.type = ORBPERIX_REMOTE_KEY;
    key.payload.key.key_value1 = 65;
    const orbperix::Code posted = input.StartDeviceService(button).ok() && input.OpenButton(button).ok()
                                      ? input.PostRemoteCtrlEvent(button, key)
                                      : orbperix::kWrongState;
    std::printf("post: %d\n", posted.value());
    (void)input.DisconnectDevice(peer);
    return posted.ok() ? 0 : 1;
}  // input: de-initialised and destroyed, with its listener; then the engine is finalised
