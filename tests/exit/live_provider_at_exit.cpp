// A host that exits with live, connected input and source providers (heartbeat thread running
// and sending) and the engine still initialised: nothing may call into an unloaded engine,
// join a thread where that hangs, or use destroyed state; the process must end normally, on
// Windows as on Linux.
#include <cstdio>
#include <cstring>

#include "orbperix/orbperix.h"

int main() {
    auto& manager = OrbPerix::PERIXProviderManager::GetInstance();
    if (manager.Initialize(nullptr, "exit-test") != 0) {
        std::printf("Initialize failed\n");
        return 1;
    }
    auto input = manager.CreateInputProvider();
    auto source = manager.CreateSourceProvider();
    if (!input || !source || input->Init() != 0 || source->Init() != 0) {
        std::printf("provider setup failed\n");
        return 1;
    }
    PERIXInfo info;
    std::memset(&info, 0, sizeof(info));
    std::snprintf(info.peerDeviceId, sizeof(info.peerDeviceId), "%s", "peer-at-exit");
    info.connectType = 1;
    ProviderListener listener{};
    if (input->RegisterPERIXListener(&info, &listener) != 0 || input->ConnectDevice(&info) != 0) {
        std::printf("peer setup failed\n");
        return 1;
    }
    PERIXInfo streams = info;
    std::snprintf(streams.peerDeviceId, sizeof(streams.peerDeviceId), "%s", "source-at-exit");
    if (source->RegisterPERIXListener(&streams, &listener) != 0 ||
        source->ConnectDevice(&streams) != 0) {
        std::printf("source peer setup failed\n");
        return 1;
    }
    ServiceInfo button{"peer-at-exit", "btn-1", 6};
    input->OpenButton(&button, nullptr);
    RemoteCtrlEvent move;
    std::memset(&move, 0, sizeof(move));
    move.type = 6;
    move.payload.mouse.action = 2;
    input->PostRemoteCtrlEvent(&button, &move);
    std::printf("leaving with live input and source providers\n");
    // The manager (never destroyed) keeps its providers; the heartbeat thread ends with the
    // process. Nothing of the library runs at exit but closing the engine gate.
    return 0;
}
