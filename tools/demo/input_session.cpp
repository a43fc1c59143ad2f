// The input provider's session in the demo: a peer's whole life through the manager, with every
// packet shown as the simulated peer decoded it, and the heartbeat flowing and stopping.
#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include "demo.h"
#include "demo_step.h"
#include "perix_sim.h"
#include "perix_sim_peer.h"

namespace {

int OnButtonNotify(ServiceInfo* service, ButtonNotifyInfo* info) {
    DemoDetail("peer notification on %s/%s: word0=%u word1=%u%s", service->deviceId.c_str(),
               service->serviceId.c_str(), info->word0, info->word1,
               info->word0 == 1 && info->word1 == 0 ? " (channel open)" : "");
    return 0;
}

RemoteCtrlEvent Event(uint32_t type, uint32_t action) {
    RemoteCtrlEvent event;
    std::memset(&event, 0, sizeof(event));
    event.type = type;
    event.payload.mouse.action = action;  // the action word leads the payload
    return event;
}

// One event of every kind the encoder knows, with visible values.
std::vector<RemoteCtrlEvent> EveryKind() {
    std::vector<RemoteCtrlEvent> events;
    RemoteCtrlEvent touch = Event(0, 0);
    touch.payload.touch.pointerCount = 2;
    touch.payload.touch.pointerIds[1] = 1;
    touch.payload.touch.x[0] = 100;
    touch.payload.touch.y[0] = 200;
    touch.payload.touch.x[1] = 300;
    touch.payload.touch.y[1] = 400;
    events.push_back(touch);
    RemoteCtrlEvent key = Event(1, 0);
    key.payload.key.keyValue1 = 29;
    key.payload.key.keyValue3 = 65;
    events.push_back(key);
    RemoteCtrlEvent zoom = Event(2, 0);
    zoom.payload.zoom.x = 640;
    zoom.payload.zoom.y = 360;
    zoom.payload.zoom.zoomValue = 120;
    events.push_back(zoom);
    RemoteCtrlEvent scroll = Event(3, 1);
    scroll.payload.scroll.scrollValue = 15;
    events.push_back(scroll);
    RemoteCtrlEvent mouse = Event(6, 0);
    mouse.payload.mouse.button = 1;
    mouse.payload.mouse.coords[0] = 100;
    mouse.payload.mouse.coords[1] = 200;
    events.push_back(mouse);
    RemoteCtrlEvent text = Event(7, 0);
    text.payload.input.content.contentLength = 5;
    std::memcpy(text.payload.input.content.content, "hello", 5);
    events.push_back(text);
    RemoteCtrlEvent focus = Event(7, 1);
    focus.payload.input.focus.focusFlag = 1;
    focus.payload.input.focus.focusValues[0] = 10;
    events.push_back(focus);
    RemoteCtrlEvent wheel = Event(8, 0);
    wheel.payload.wheel.buttons = 1;
    wheel.payload.wheel.wheelValue = 3;
    wheel.payload.wheel.x = 50;
    wheel.payload.wheel.y = 60;
    events.push_back(wheel);
    RemoteCtrlEvent back = Event(9, 0);
    events.push_back(back);
    RemoteCtrlEvent message = Event(10, 0);
    message.payload.message.messageLength = 5;
    message.payload.message.messageWord = 7;
    std::memcpy(message.payload.message.messageData, "abc", 3);
    events.push_back(message);
    return events;
}

// The event's kind and coordinates as posted (whole numbers, as the packet carries them), one
// line a script can compare with a capture of the session.
void ShowPosted(const RemoteCtrlEvent& event) {
    std::string xs;
    std::string ys;
    auto add = [&](double x, double y) {
        xs += (xs.empty() ? "" : ",") + std::to_string(static_cast<int>(x));
        ys += (ys.empty() ? "" : ",") + std::to_string(static_cast<int>(y));
    };
    const RemoteCtrlPayload& p = event.payload;
    switch (event.type) {
        case 0:
            for (uint32_t i = 0; i < p.touch.pointerCount && i < 10; ++i) add(p.touch.x[i], p.touch.y[i]);
            break;
        case 2: add(p.zoom.x, p.zoom.y); break;
        case 6: add(p.mouse.coords[0], p.mouse.coords[1]); break;
        case 8: add(p.wheel.x, p.wheel.y); break;
        case 9: add(p.virtualKey.x, p.virtualKey.y); break;
        default: break;
    }
    DemoDetail("posted type=%u action=%u x=%s y=%s", event.type,
               event.type == 2 ? 0u : p.mouse.action, xs.c_str(), ys.c_str());
}

bool Expect(const char* what, int result, int expected = 0) {
    DemoStep(what, result);
    if (result != expected) {
        DemoDetail("unexpected result %d (wanted %d)", result, expected);
        return false;
    }
    return true;
}

}  // namespace

bool RunInputSession(OrbPerix::PERIXProviderManager& manager) {
    bool ok = true;
    std::shared_ptr<OrbPerix::IInputProvider> provider = manager.CreateInputProvider();
    DemoStep("CreateInputProvider", provider ? 0 : -1);
    if (!provider) {
        return false;
    }
    perix_sim_peer_clear_packets();
    perix_sim_set_auto_open(1);  // the simulated peer answers ButtonOpen with "open"

    PERIXInfo info;
    std::memset(&info, 0, sizeof(info));
    std::strcpy(info.localDeviceId, "demo-pc");
    std::strcpy(info.peerDeviceId, "demo-tablet");
    info.serverPort = 7000;
    info.connectType = 1;
    ProviderListener listener{};
    listener.onButtonNotify = &OnButtonNotify;

    ok = Expect("InputProvider Init (heartbeat thread started)", provider->Init()) && ok;
    ok = Expect("RegisterPERIXListener demo-tablet", provider->RegisterPERIXListener(&info, &listener)) && ok;
    ok = Expect("ConnectDevice demo-tablet", provider->ConnectDevice(&info)) && ok;
    ServiceInfo service{"demo-tablet", "button-0", 6};
    ok = Expect("OpenButton button-0", provider->OpenButton(&service, nullptr)) && ok;
    perix_sim_peer_flush();
    // The first millisecond after creation reads as "no input yet"; start past it.
    std::this_thread::sleep_for(std::chrono::milliseconds(5));

    std::vector<RemoteCtrlEvent> events = EveryKind();
    for (RemoteCtrlEvent& event : events) {
        const int before = perix_sim_peer_packet_count();
        const int result = provider->PostRemoteCtrlEvent(&service, &event);
        const std::string what = "PostRemoteCtrlEvent type " + std::to_string(event.type);
        ok = Expect(what.c_str(), result) && ok;
        ShowPosted(event);
        perix_sim_packet packet{};
        if (perix_sim_peer_packet_count() == before + 1 &&
            perix_sim_peer_get_packet(before, &packet) == 0) {
            DemoDetail("peer decoded %u bytes: %s", packet.length, packet.description);
            ok = ok && packet.decoded == 1;
        } else {
            DemoDetail("the peer received no packet");
            ok = false;
        }
    }

    // The wheel above was the last counted input; heartbeats start 50 ms after it.
    const int beats = perix_sim_peer_wait_heartbeats(5, 2000);
    DemoStep("heartbeats flowing while input is recent", beats >= 5 ? 0 : -1);
    DemoDetail("%d heartbeat packets (11 bytes: 00 x10, FF) so far", beats);
    ok = ok && beats >= 5;

    ServiceInfo closing = service;
    ok = Expect("CloseButton button-0 (the channel is no longer open)",
                provider->CloseButton(&closing, nullptr, nullptr)) && ok;
    const int atClose = perix_sim_peer_heartbeat_count();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    const int afterClose = perix_sim_peer_heartbeat_count();
    DemoStep("heartbeats stopped after the channel closed", afterClose - atClose <= 1 ? 0 : -1);
    DemoDetail("%d heartbeat packets in the 200 ms after closing", afterClose - atClose);
    ok = ok && afterClose - atClose <= 1;

    uint8_t bytes[] = {'p', 'i', 'n', 'g'};
    BinaryData data{1, 0, bytes, sizeof(bytes)};
    const std::string peer = "demo-tablet";
    const int sentBefore = perix_sim_count_calls(PERIX_SIM_MAIN, 16);
    provider->SendBinaryData(&peer, &data);
    const int sent = perix_sim_count_calls(PERIX_SIM_MAIN, 16) - sentBefore;
    DemoStep("SendBinaryData \"ping\" (engine received one copy)", sent == 1 ? 0 : -1);
    ok = ok && sent == 1;

    ok = Expect("DisconnectDevice demo-tablet", provider->DisconnectDevice(&info)) && ok;
    provider->DeInit();
    DemoStep("InputProvider DeInit (heartbeat thread joined)", 0);
    DemoDetail("heartbeats written in total: %d", perix_sim_peer_heartbeat_count());
    const bool destroyed = manager.DestoryInputProvider(provider);
    DemoStep("DestoryInputProvider", destroyed ? 0 : -1);
    ok = ok && destroyed;
    perix_sim_set_auto_open(0);
    return ok;
}
