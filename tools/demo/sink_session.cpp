// The sink session of the demo: one Mesh provider handle, its connection status and trace id.
#include <cstdio>
#include <cstring>

#include "demo.h"
#include "demo_step.h"
#include "perix_sim.h"

bool RunSinkSession(OrbPerix::PERIXProviderManager& manager) {
    std::printf("== Sink session: connection status with its trace id\n");
    std::shared_ptr<OrbPerix::ISinkProvider> sink = manager.CreateSinkProvider();
    DemoStep("CreateSinkProvider", sink != nullptr ? 0 : -1);
    if (sink == nullptr) {
        return false;
    }
    bool ok = true;
    PERIXInfo info;
    std::memset(&info, 0, sizeof(info));
    std::strcpy(info.localDeviceId, "demo-pc");
    std::strcpy(info.peerDeviceId, "demo-display");
    info.serverPort = 7200;
    info.connectType = 1;

    int r = sink->Init();
    DemoStep("Sink Init", r);
    ok = ok && r == 0;
    r = sink->ConnectDevice(&info);
    DemoStep("Sink ConnectDevice demo-display", r);
    ok = ok && r == 0;
    perix_sim_set_trace_id(0x1ABC);
    r = sink->GetConnectionStatus();
    DemoStep("GetConnectionStatus (engine trace id 0x1ABC)", r);
    ok = ok && r == 0;
    r = sink->DisconnectDevice(&info, nullptr);
    DemoStep("Sink DisconnectDevice demo-display", r);
    ok = ok && r == 0;
    sink->DeInit();
    DemoStep("Sink DeInit (releases the Mesh handle)", 0);
    const bool destroyed = manager.DestorySinkProvider(sink);
    sink.reset();
    DemoStep("DestorySinkProvider", destroyed ? 0 : -1);
    return ok && destroyed;
}
