// A host that exits with an initialised input provider still registered (heartbeat thread
// running) and the engine still initialised: the library's exit-time teardown must finish
// and the process must end normally, on Windows as on Linux.
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
    std::printf("leaving with a live input provider\n");
    return 0;  // the manager, the providers and the heartbeat are torn down at exit
}
