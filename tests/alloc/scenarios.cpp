#include "scenarios.h"

#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "ScreenRelayTest.h"
#include "orbperix/orbperix.h"
#include "orbperix/orbperix_c.h"
#include "perix_sim.h"
#include "perix_sim_peer.h"
#include "perix_sim_streams.h"
#include "sample_events.h"
#include "orbperix/remote_event.h"
#include "provider/session_store.h"
#include "remote/remote_controller.h"

namespace scenarios {
namespace {

using OrbPerix::PERIXProviderManager;
using sample_events::Event;
using sample_events::EveryKind;
using sweep::Step;

// Sizes of the library's own allocations whose failure has a line of its own.
constexpr size_t kSessionRecord = sizeof(OrbPerix::PerixSessionInfo);
constexpr size_t kHeartbeatBuffer = 11;
// The remote-event sender and its packet builder, made by the first event of the process.
constexpr size_t kSender = sizeof(RemoteUtil::RemoteEvent);
constexpr size_t kPacketBuilder = sizeof(RemoteUtil::RemoteController);
// Remote-control send buffers: the size by kind plus the 4 spare bytes of the timestamp.
constexpr size_t kSmallSendBuffer = 105 + 4;
constexpr size_t kTextSendBuffer = 489 + 4;
constexpr size_t kMessageSendBuffer = 491 + 4;
// Payload lengths, each distinct, so that a failing copy names its notification.
constexpr uint32_t kSentData = 43;
constexpr uint32_t kButtonData = 37;
constexpr uint32_t kReceivedData = 41;
constexpr uint32_t kAudioData = 53;
constexpr uint32_t kRefreshData = 59;

PERIXProviderManager& Manager() { return PERIXProviderManager::GetInstance(); }

std::vector<uint8_t> Payload(uint32_t length) {
    std::vector<uint8_t> bytes(length);
    for (uint32_t i = 0; i < length; ++i) {
        bytes[i] = static_cast<uint8_t>(i * 7 + length);
    }
    return bytes;
}

bool SamePayload(const uint8_t* data, uint32_t length, uint32_t expected) {
    if (length != expected || data == nullptr) {
        return false;
    }
    const std::vector<uint8_t> bytes = Payload(expected);
    return std::memcmp(data, bytes.data(), length) == 0;
}

PERIXInfo Peer(const std::string& id) {
    PERIXInfo info;
    std::memset(&info, 0, sizeof(info));
    std::strcpy(info.localDeviceId, "sweep-pc");
    std::strcpy(info.peerDeviceId, id.c_str());
    info.localDeviceIdLen = 8;
    info.peerDeviceIdLen = static_cast<uint32_t>(id.size());
    info.serverPort = 7000;
    info.connectType = 1;
    return info;
}

// What the host's listeners saw: counts and whether each payload arrived intact.
struct Seen {
    int device = 0;
    int service = 0;
    int data = 0;
    int button = 0;
    int audio = 0;
    int refresh = 0;
    bool payloadOk = false;
    std::string deviceId;
};
Seen g_seen;

int OnDevice(DeviceChangeInfo* info) {
    ++g_seen.device;
    g_seen.deviceId = info->deviceId;
    return 0;
}
int OnService(ServiceChangeInfo* info) {
    ++g_seen.service;
    g_seen.deviceId = info->deviceId;
    return 0;
}
int OnData(std::string deviceId, BinaryData* data) {
    ++g_seen.data;
    g_seen.deviceId = deviceId;
    g_seen.payloadOk = SamePayload(data->data, data->len, kReceivedData);
    return 0;
}
int OnAudio(ServiceInfo*, AudioData* data) {
    ++g_seen.audio;
    g_seen.payloadOk = SamePayload(data->data, data->dataLen, kAudioData);
    return 0;
}
int OnButton(ServiceInfo*, ButtonNotifyInfo* info) {
    ++g_seen.button;
    g_seen.payloadOk = info->dataLen == 0 || SamePayload(info->dataExtend, info->dataLen, kButtonData);
    return 0;
}
int OnRefresh(ServiceInfo*, PartialRefreshData* data) {
    ++g_seen.refresh;
    g_seen.payloadOk = SamePayload(data->data, data->dataLen, kRefreshData);
    return 0;
}

ProviderListener AllListeners() {
    ProviderListener listener{};
    listener.onDeviceChange = &OnDevice;
    listener.onServiceChange = &OnService;
    listener.onDataReceive = &OnData;
    listener.onAudioData = &OnAudio;
    listener.onButtonNotify = &OnButton;
    listener.onPartialRefreshData = &OnRefresh;
    return listener;
}

// 0 when `seen`'s `counter` grew by one with the expected payload (when `payload`), else -1.
template <typename Fire>
int DeliveredTo(Seen& seen, int Seen::*counter, bool payload, Fire&& fire) {
    const int before = seen.*counter;
    seen.payloadOk = false;
    fire();
    if (seen.*counter != before + 1) {
        return -1;
    }
    return !payload || seen.payloadOk ? 0 : -1;
}
// The same for the C++ listeners.
template <typename Fire>
int Delivered(int Seen::*counter, bool payload, Fire&& fire) {
    return DeliveredTo(g_seen, counter, payload, std::forward<Fire>(fire));
}

// The lines a notification logs when the library's copy of its payload cannot be made,
// followed by the payload's length.
const char* const kButtonNoMemory = "On ButtonNotify, new dataExtend failed: , dataLen: ";
const char* const kDataNoMemory = "On DataReceive, new data failed: , dataLen: ";
const char* const kAudioNoMemory = "On AudioNotify, new dataExtend failed: , dataLen: ";
const char* const kRefreshNoMemory = "On PartialRefreshNotify, new dataExtend failed: , dataLen: ";

// A notification that carries Payload(length) to `seen`'s `counter`: `fire` delivers the bytes
// and returns the engine callback's result (0 where it has none).
Step PayloadStep(const std::string& name, Seen* seen, int Seen::*counter, uint32_t length,
                 const char* noMemory, std::function<int(uint8_t*)> fire) {
    Step step{name, [seen, counter, length, fire] {
                  int result = 0;
                  const int delivered = DeliveredTo(*seen, counter, true, [&] {
                      std::vector<uint8_t> bytes = Payload(length);
                      result = fire(bytes.data());
                  });
                  return result != 0 ? result : delivered;
              }};
    step.lines = {{length, noMemory + std::to_string(length)}};
    return step;
}

// Common steps: initialise and finalise.
Step InitializeStep() {
    Step step{"Initialize", [] { return Manager().Initialize(nullptr, "alloc-sweep"); }};
    step.failLine = "PERIXProviderManager Initalize failed: out of memory";
    step.failCode = -3;
    return step;
}
Step FinalizeStep() {
    return Step{"Finalize", [] {
                    Manager().Finalize();
                    return Manager().IsManagerInitialized() ? -1 : 0;
                }};
}

// Steps [from, to) use the provider that an earlier step created; when that creation failed
// they report kNoProvider instead of running.
constexpr int kNoProvider = -1000;
void NeedsProvider(std::vector<Step>& steps, size_t from, size_t to, std::function<bool()> ready) {
    for (size_t i = from; i < to; ++i) {
        steps[i].run = [ready, run = steps[i].run] { return ready() ? run() : kNoProvider; };
    }
}

void ResetEngine() {
    Manager().Finalize();
    perix_sim_reset();
    g_seen = Seen();
}

// An input provider's Init: its heartbeat thread allocates its buffer in the background.
Step HeartbeatInitStep(const std::string& name, std::function<int()> run) {
    Step init{name, std::move(run)};
    init.background = 1;
    init.failLine = "Init, start heartbeat thread failed: 12";
    init.failCode = -13;
    init.lines = {{kHeartbeatBuffer, "ButtonHeart failed: new buttonDataBuffer error"}};
    return init;
}

// A listener registration, which allocates the session record; `recordLine`: whether the
// record's own failure is expected to be logged by size.
Step RegisterStep(const std::string& name, std::function<int()> run, bool recordLine = true) {
    Step registered{name, std::move(run)};
    if (recordLine) registered.lines = {{kSessionRecord, "new PerixSessionInfo fail"}};
    registered.failLine = "new PerixSessionInfo fail";
    registered.failCode = -13;
    return registered;
}

// A remote-control event posted through a `sendBuffer`-byte send buffer.
Step PostStep(const std::string& name, size_t sendBuffer, std::function<int()> run) {
    Step post{name, std::move(run)};
    post.lines = {{sendBuffer, "sendRemoteCtrlEvent new mSendBuffer error"},
                  {kSender, "new RemoteEvent failed"},
                  {kPacketBuilder, "SendRemoteCtrlEvent: new remoteController failed"}};
    post.failCode = -3;
    return post;
}

// Binary data of kSentData bytes sent to the peer.
Step SendDataStep(const std::string& name, std::function<int()> run) {
    Step send{name, std::move(run)};
    send.lines = {{kSentData, "SendBinaryData, new binaryData failed."}};
    return send;
}


// Creation, teardown and cleanup of one provider kind, written once for the three sessions.
template <typename P>
struct Registry;
template <>
struct Registry<OrbPerix::IInputProvider> {
    static constexpr const char* kKind = "Input";
    static std::shared_ptr<OrbPerix::IInputProvider> Create() { return Manager().CreateInputProvider(); }
    static bool Destroy(std::shared_ptr<OrbPerix::IInputProvider> p) { return Manager().DestoryInputProvider(p); }
};
template <>
struct Registry<OrbPerix::ISourceProvider> {
    static constexpr const char* kKind = "Source";
    static std::shared_ptr<OrbPerix::ISourceProvider> Create() { return Manager().CreateSourceProvider(); }
    static bool Destroy(std::shared_ptr<OrbPerix::ISourceProvider> p) { return Manager().DestorySourceProvider(p); }
};
template <>
struct Registry<OrbPerix::ISinkProvider> {
    static constexpr const char* kKind = "Sink";
    static std::shared_ptr<OrbPerix::ISinkProvider> Create() { return Manager().CreateSinkProvider(); }
    static bool Destroy(std::shared_ptr<OrbPerix::ISinkProvider> p) { return Manager().DestorySinkProvider(p); }
};

// Initialize and the creation of `state->provider`: the first two steps of a session.
template <typename P, typename State>
void AddStart(std::vector<Step>& steps, const std::shared_ptr<State>& state) {
    steps.push_back(InitializeStep());
    steps.push_back(Step{std::string("Create") + Registry<P>::kKind + "Provider", [state] {
                             state->provider = Registry<P>::Create();
                             return state->provider ? 0 : -1;
                         }});
    steps.back().failLine = std::string("Create ") + Registry<P>::kKind + "Provider failed: out of memory";
}

// DeInit, destroy and Finalize: the last steps of a session. Every step after the creation
// needs the provider.
template <typename P, typename State>
void AddEnd(std::vector<Step>& steps, const std::shared_ptr<State>& state) {
    steps.push_back(Step{"DeInit", [state] {
                             state->provider->DeInit();
                             return 0;
                         }});
    steps.push_back(Step{std::string("Destory") + Registry<P>::kKind + "Provider", [state] {
                             const bool destroyed = Registry<P>::Destroy(state->provider);
                             state->provider.reset();
                             return destroyed ? 0 : -1;
                         }});
    NeedsProvider(steps, 2, steps.size(), [state] { return state->provider != nullptr; });
    steps.push_back(FinalizeStep());
}

// Whatever a failed run left: the provider destroyed, the manager finalised, the engine reset.
template <typename P, typename State>
std::function<void()> Cleanup(const std::shared_ptr<State>& state) {
    return [state] {
        if (state->provider) {
            Registry<P>::Destroy(state->provider);
            state->provider.reset();
        }
        ResetEngine();
    };
}

// ---- Input ----

struct InputState {
    std::shared_ptr<OrbPerix::IInputProvider> provider;
    PERIXInfo info = Peer("tab-1");
    ProviderListener listener = AllListeners();
    ServiceInfo button{"tab-1", "btn-0", 6};
};

size_t SendBufferOf(uint32_t type) {
    return type == 7 ? kTextSendBuffer : type == 10 ? kMessageSendBuffer : kSmallSendBuffer;
}

// Sends kSentData bytes through `provider`; SendData reports 0 whatever happens.
template <typename Provider>
int SendSomeData(Provider& provider, const std::string& deviceId) {
    std::vector<uint8_t> bytes = Payload(kSentData);
    BinaryData data{1, 2, bytes.data(), kSentData};
    return provider.SendData(&deviceId, &data);
}

// Button data from the peer on the engine's delivery thread, to `seen`'s listener.
Step PeerButtonStep(const std::string& name, const std::string& deviceId, Seen* seen) {
    return PayloadStep(name, seen, &Seen::button, kButtonData, kButtonNoMemory,
                       [deviceId](uint8_t* bytes) {
                           perix_sim_peer_post_button(deviceId.c_str(), "btn-0", 2, 0, bytes,
                                                      kButtonData);
                           perix_sim_peer_flush();
                           return 0;
                       });
}

// Binary data from the peer of the newest handle, to `seen`'s listener.
Step PeerDataStep(const std::string& name, Seen* seen) {
    return PayloadStep(name, seen, &Seen::data, kReceivedData, kDataNoMemory, [](uint8_t* bytes) {
        perix_sim_peer_post_data(perix_sim_last_handle(), 3, 4, bytes, kReceivedData);
        perix_sim_peer_flush();
        return 0;
    });
}

// The notifications every session receives from its peer on the engine's delivery thread.
void AddPeerNotifications(std::vector<Step>& steps, const std::string& deviceId) {
    steps.push_back(Step{"peer device change", [deviceId] {
                             return Delivered(&Seen::device, false, [&] {
                                 perix_sim_peer_post_device_change(perix_sim_last_handle(),
                                                                   deviceId.c_str(), 1, 2);
                                 perix_sim_peer_flush();
                             });
                         }});
    steps.push_back(Step{"peer service change", [deviceId] {
                             return Delivered(&Seen::service, false, [&] {
                                 perix_sim_peer_post_service_change(perix_sim_last_handle(),
                                                                    deviceId.c_str(),
                                                                    "service-of-the-peer-0001",
                                                                    1, 2, 3);
                                 perix_sim_peer_flush();
                             });
                         }});
    steps.push_back(PeerDataStep("peer data", &g_seen));
}

}  // namespace

sweep::Scenario InputSession() {
    auto state = std::make_shared<InputState>();
    std::vector<Step> steps;
    AddStart<OrbPerix::IInputProvider>(steps, state);
    steps.push_back(HeartbeatInitStep("Init", [state] { return state->provider->Init(); }));
    steps.push_back(RegisterStep("RegisterPERIXListener", [state] {
        return state->provider->RegisterPERIXListener(&state->info, &state->listener);
    }, false));
    steps.push_back(Step{"ConnectDevice", [state] { return state->provider->ConnectDevice(&state->info); }});
    steps.push_back(Step{"StartDeviceService", [state] {
                             return state->provider->StartDeviceService(&state->button, nullptr);
                         }});
    steps.push_back(Step{"OpenButton and the peer's open notification", [state] {
                             perix_sim_set_auto_open(1);
                             const int opened = state->provider->OpenButton(&state->button, nullptr);
                             perix_sim_peer_flush();
                             return opened;
                         }});
    for (const RemoteCtrlEvent& kind : EveryKind()) {
        steps.push_back(PostStep("PostRemoteCtrlEvent type " + std::to_string(kind.type),
                                 SendBufferOf(kind.type), [state, kind] {
                                     RemoteCtrlEvent event = kind;
                                     return state->provider->PostRemoteCtrlEvent(&state->button, &event);
                                 }));
    }
    steps.push_back(SendDataStep("SendData", [state] {
        return SendSomeData(*state->provider, state->info.peerDeviceId);
    }));
    steps.push_back(PeerButtonStep("peer button data", "tab-1", &g_seen));
    AddPeerNotifications(steps, "tab-1");
    steps.push_back(Step{"CloseButton", [state] {
                             return state->provider->CloseButton(&state->button, nullptr, nullptr);
                         }});
    steps.push_back(Step{"StopDeviceService", [state] {
                             return state->provider->StopDeviceService(&state->button);
                         }});
    steps.push_back(Step{"DisconnectDevice", [state] { return state->provider->DisconnectDevice(&state->info); }});
    AddEnd<OrbPerix::IInputProvider>(steps, state);
    return sweep::Scenario{"input session", steps, Cleanup<OrbPerix::IInputProvider>(state)};
}

// ---- Source ----

namespace {
// Identifiers longer than the standard string's inline capacity: their copies allocate.
const char* const kLongPeer = "source-peer-with-a-long-identifier";
const char* const kLongService = "audio-service-with-a-long-id";

struct SourceState {
    std::shared_ptr<OrbPerix::ISourceProvider> provider;
    PERIXInfo info = Peer(kLongPeer);
    ProviderListener listener = AllListeners();
    ServiceInfo audio{kLongPeer, kLongService, 3};
    ServiceInfo refresh{kLongPeer, "refresh-service-with-a-long-id", 11};
};

// Audio from the peer's `serviceId`, to `seen`'s listener.
Step AudioDelivery(const std::string& name, std::string device, std::string service, Seen* seen) {
    return PayloadStep(name, seen, &Seen::audio, kAudioData, kAudioNoMemory,
                       [device, service](uint8_t* bytes) {
                           perix_sim_deliver_audio(device.c_str(), service.c_str(), 3, 1, 2, bytes,
                                                   kAudioData);
                           perix_sim_deliveries_flush();
                           return 0;
                       });
}
}  // namespace

sweep::Scenario SourceSession() {
    auto state = std::make_shared<SourceState>();
    std::vector<Step> steps;
    AddStart<OrbPerix::ISourceProvider>(steps, state);
    steps.push_back(Step{"Init", [state] { return state->provider->Init(); }});
    steps.push_back(RegisterStep("RegisterPERIXListener", [state] {
        return state->provider->RegisterPERIXListener(&state->info, &state->listener);
    }));
    steps.push_back(Step{"ConnectDevice", [state] { return state->provider->ConnectDevice(&state->info); }});
    steps.push_back(Step{"OpenAudio", [state] {
                             AudioParam param{};
                             return state->provider->OpenAudio(&state->audio, &param);
                         }});
    steps.push_back(Step{"AudioWriteStreamBuffer", [state] {
                             std::vector<uint8_t> bytes = Payload(64);
                             state->provider->AudioWriteStreamBuffer(&state->audio, bytes.data(), 64);
                             return 0;
                         }});
    steps.push_back(AudioDelivery("peer audio", kLongPeer, kLongService, &g_seen));
    steps.push_back(Step{"OpenPartialRefresh", [state] {
                             return state->provider->OpenPartialRefresh(&state->refresh);
                         }});
    steps.push_back(Step{"PartialRefreshWriteStreamBuffer", [state] {
                             std::vector<uint8_t> bytes = Payload(96);
                             return state->provider->PartialRefreshWriteStreamBuffer(
                                 &state->refresh, bytes.data(), 96);
                         }});
    steps.push_back(PayloadStep("peer partial refresh", &g_seen, &Seen::refresh, kRefreshData,
                                kRefreshNoMemory, [](uint8_t* bytes) {
                                    perix_sim_deliver_refresh(kLongPeer, "refresh-service-with-a-long-id",
                                                              1, 2, bytes, kRefreshData);
                                    perix_sim_deliveries_flush();
                                    return 0;
                                }));
    steps.push_back(SendDataStep("SendData", [state] { return SendSomeData(*state->provider, kLongPeer); }));
    AddPeerNotifications(steps, kLongPeer);
    steps.push_back(Step{"CloseAudio", [state] { return state->provider->CloseAudio(&state->audio); }});
    steps.push_back(Step{"ClosePartialRefresh", [state] {
                             return state->provider->ClosePartialRefresh(&state->refresh);
                         }});
    steps.push_back(Step{"DisconnectDevice", [state] { return state->provider->DisconnectDevice(&state->info); }});
    AddEnd<OrbPerix::ISourceProvider>(steps, state);
    return sweep::Scenario{"source session", steps, Cleanup<OrbPerix::ISourceProvider>(state)};
}

// ---- Sink ----

sweep::Scenario SinkSession() {
    struct State {
        std::shared_ptr<OrbPerix::ISinkProvider> provider;
        PERIXInfo info = Peer("sink-peer");
    };
    auto state = std::make_shared<State>();
    std::vector<Step> steps;
    AddStart<OrbPerix::ISinkProvider>(steps, state);
    steps.push_back(Step{"Init", [state] { return state->provider->Init(); }});
    steps.push_back(Step{"ConnectDevice", [state] { return state->provider->ConnectDevice(&state->info); }});
    steps.push_back(Step{"GetConnectionStatus (trace id line)", [state] {
                             perix_sim_set_trace_id(0xabcdef0123ull);
                             return state->provider->GetConnectionStatus();
                         }});
    steps.push_back(Step{"RegisterEngineCallback", [state] {
                             return state->provider->RegisterEngineCallback(1, nullptr);
                         }});
    steps.push_back(Step{"DisconnectDevice", [state] {
                             return state->provider->DisconnectDevice(&state->info, nullptr);
                         }});
    AddEnd<OrbPerix::ISinkProvider>(steps, state);
    return sweep::Scenario{"sink session", steps, Cleanup<OrbPerix::ISinkProvider>(state)};
}

// ---- Every engine notification, fired on this thread with its result ----

sweep::Scenario Notifications() {
    struct State {
        std::shared_ptr<OrbPerix::IInputProvider> input;
        std::shared_ptr<OrbPerix::ISourceProvider> source;
        PERIXInfo inputPeer = Peer("input-peer-with-a-long-identifier");
        PERIXInfo sourcePeer = Peer(kLongPeer);
        ProviderListener listener = AllListeners();
        void* inputHandle = nullptr;
        void* sourceHandle = nullptr;
    };
    auto state = std::make_shared<State>();
    std::vector<Step> steps;
    steps.push_back(InitializeStep());
    // Init on a step of its own: the heartbeat thread's allocation must not race the
    // registration's.
    steps.push_back(Step{"input provider created and initialised", [state] {
                             state->input = Manager().CreateInputProvider();
                             return state->input ? state->input->Init() : -1;
                         }, 0, 1});
    steps.push_back(Step{"input provider registered", [state] {
                             if (!state->input) {
                                 return -1;
                             }
                             const int r = state->input->RegisterPERIXListener(&state->inputPeer, &state->listener);
                             state->inputHandle = perix_sim_last_handle();
                             return r;
                         }});
    // A service id longer than the string's inline capacity: the session's copy allocates.
    // (No input is posted in this scenario, so the heartbeat never writes.)
    steps.push_back(Step{"OpenButton (long service id)", [state] {
                             if (!state->input) {
                                 return -1;
                             }
                             ServiceInfo button{"input-peer-with-a-long-identifier",
                                                "button-service-with-a-long-id", 6};
                             return state->input->OpenButton(&button, nullptr);
                         }});
    steps.back().failLine = "OpenButton failed, no memory for the service id";
    steps.back().failCode = -3;
    steps.push_back(Step{"source provider registered", [state] {
                             state->source = Manager().CreateSourceProvider();
                             if (!state->source) {
                                 return -1;
                             }
                             int r = state->source->Init();
                             r = r != 0 ? r : state->source->RegisterPERIXListener(&state->sourcePeer, &state->listener);
                             state->sourceHandle = perix_sim_last_handle();
                             return r;
                         }});
    for (int kind = 0; kind < 2; ++kind) {
        const bool input = kind == 0;
        const std::string id = input ? "input-peer-with-a-long-identifier" : kLongPeer;
        const std::string prefix = input ? "input: " : "source: ";
        steps.push_back(Step{prefix + "device change", [state, input, id] {
                                 return Delivered(&Seen::device, false, [&] {
                                     const PerixDeviceChangeNotify notify{id.c_str(), static_cast<uint32_t>(id.size()), 1, 2};
                                     perix_sim_fire_device_change(input ? state->inputHandle : state->sourceHandle, &notify);
                                 });
                             }});
        steps.push_back(Step{prefix + "service change", [state, input, id] {
                                 return Delivered(&Seen::service, false, [&] {
                                     const char* service = "service-of-the-peer-0001";
                                     const PerixServiceChangeNotify notify{
                                         id.c_str(), static_cast<uint32_t>(id.size()), service,
                                         static_cast<uint32_t>(std::strlen(service)), 1, 2, 3};
                                     perix_sim_fire_service_change(input ? state->inputHandle : state->sourceHandle, &notify);
                                 });
                             }});
        steps.push_back(PayloadStep(prefix + "data", &g_seen, &Seen::data, kReceivedData,
                                    kDataNoMemory, [state, input](uint8_t* bytes) {
                                        const BinaryData record{5, 6, bytes, kReceivedData};
                                        perix_sim_fire_data(input ? state->inputHandle : state->sourceHandle, &record);
                                        return 0;
                                    }));
    }
    Step button = PayloadStep("button data", &g_seen, &Seen::button, kButtonData, kButtonNoMemory,
                              [](uint8_t* bytes) {
                                  const std::string id = "input-peer-with-a-long-identifier";
                                  const std::string service = "button-service-with-a-long-id";
                                  const PerixButtonIdentity identity{
                                      id.c_str(), static_cast<uint32_t>(id.size()), service.c_str(),
                                      static_cast<uint32_t>(service.size())};
                                  const PerixButtonNotify notify{2, 0, 0, kButtonData, bytes};
                                  return perix_sim_fire_button(&identity, &notify);
                              });
    button.failCode = -13;
    steps.push_back(button);
    for (const bool audio : {true, false}) {
        const uint32_t length = audio ? kAudioData : kRefreshData;
        Step stream = PayloadStep(
            audio ? "audio" : "partial refresh", &g_seen, audio ? &Seen::audio : &Seen::refresh,
            length, audio ? kAudioNoMemory : kRefreshNoMemory, [audio, length](uint8_t* bytes) {
                const std::string service = audio ? kLongService : "refresh-service-with-a-long-id";
                const PerixServiceId id{kLongPeer, static_cast<uint32_t>(std::strlen(kLongPeer)),
                                        service.c_str(), static_cast<uint32_t>(service.size()), 3};
                const PerixStreamNotify notify{1, 2, 0, length, bytes};
                return audio ? perix_sim_fire_audio(&id, &notify) : perix_sim_fire_refresh(&id, &notify);
            });
        stream.failCode = -13;
        steps.push_back(stream);
    }
    steps.push_back(Step{"providers destroyed", [state] {
                             const bool input = Manager().DestoryInputProvider(state->input);
                             const bool source = Manager().DestorySourceProvider(state->source);
                             state->input.reset();
                             state->source.reset();
                             return input && source ? 0 : -1;
                         }});
    steps.push_back(FinalizeStep());
    return sweep::Scenario{"engine notifications", steps, [state] {
                               if (state->input) {
                                   Manager().DestoryInputProvider(state->input);
                                   state->input.reset();
                               }
                               if (state->source) {
                                   Manager().DestorySourceProvider(state->source);
                                   state->source.reset();
                               }
                               ResetEngine();
                           }};
}

// ---- The C interface ----

namespace {

// What the C listeners saw.
Seen g_cseen;

void COnDevice(void*, const orbperix_device_change*) { ++g_cseen.device; }
void COnData(void*, const char*, uint32_t, const orbperix_binary* data) {
    ++g_cseen.data;
    g_cseen.payloadOk = SamePayload(data->data, data->len, kReceivedData);
}
void COnButton(void*, const orbperix_service*, const orbperix_button_notify* info) {
    ++g_cseen.button;
    g_cseen.payloadOk = info->data_len == 0 || SamePayload(info->data, info->data_len, kButtonData);
}
void COnAudio(void*, const orbperix_service*, const orbperix_stream_data* data) {
    ++g_cseen.audio;
    g_cseen.payloadOk = SamePayload(data->data, data->data_len, kAudioData);
}

template <typename Fire>
int CDelivered(int Seen::*counter, bool payload, Fire&& fire) {
    return DeliveredTo(g_cseen, counter, payload, std::forward<Fire>(fire));
}

// Destroys the provider in `state->*handle` (1 on success) and forgets it.
template <typename State, typename Handle, typename Result>
Step DestroyCStep(const char* name, const std::shared_ptr<State>& state, Handle State::*handle,
                  Result (*destroy)(Handle)) {
    return Step{name, [state, handle, destroy] {
                    const int r = destroy(state.get()->*handle);
                    state.get()->*handle = 0;
                    return r == 1 ? 0 : r;
                }};
}

orbperix_device_info CPeer(const char* id) {
    const PERIXInfo info = Peer(id);
    orbperix_device_info c;
    static_assert(sizeof(c) == sizeof(info), "same layout");
    std::memcpy(&c, &info, sizeof(c));
    return c;
}

}  // namespace

sweep::Scenario CSession() {
    struct State {
        orbperix_input_handle input = 0;
        orbperix_source_handle source = 0;
        orbperix_sink_handle sink = 0;
        orbperix_device_info inputPeer = CPeer("c-tab");
        orbperix_device_info sourcePeer = CPeer("c-source-peer-with-a-long-identifier");
        orbperix_listener listener{};
    };
    auto state = std::make_shared<State>();
    state->listener.on_device_change = &COnDevice;
    state->listener.on_data = &COnData;
    state->listener.on_button = &COnButton;
    state->listener.on_audio = &COnAudio;
    static const orbperix_service kButton{"c-tab", -1, "btn-0", -1, 6};
    static const orbperix_service kAudio{"c-source-peer-with-a-long-identifier", -1,
                                         "c-audio-service-with-a-long-id", -1, 3};
    std::vector<Step> steps;
    steps.push_back(Step{"orbperix_initialize", [] { return orbperix_initialize(nullptr, "alloc-sweep-c"); }});
    steps.back().failLine = "PERIXProviderManager Initalize failed: out of memory";
    steps.back().failCode = -3;
    steps.push_back(Step{"orbperix_create_input_provider", [state] {
                             state->input = orbperix_create_input_provider();
                             return state->input != 0 ? 0 : -1;
                         }});
    steps.push_back(HeartbeatInitStep("orbperix_input_init", [state] { return orbperix_input_init(state->input); }));
    steps.push_back(RegisterStep("orbperix_input_register_listener", [state] {
        return orbperix_input_register_listener(state->input, &state->inputPeer, &state->listener,
                                                state.get());
    }));
    steps.push_back(Step{"orbperix_input_connect_device", [state] {
                             return orbperix_input_connect_device(state->input, &state->inputPeer);
                         }});
    steps.push_back(Step{"orbperix_input_start_device_service", [state] {
                             return orbperix_input_start_device_service(state->input, &kButton, nullptr);
                         }});
    steps.push_back(Step{"orbperix_input_open_button", [state] {
                             perix_sim_set_auto_open(1);
                             const int opened = orbperix_input_open_button(state->input, &kButton, nullptr);
                             perix_sim_peer_flush();
                             return opened;
                         }});
    steps.push_back(PostStep("orbperix_input_post_remote_ctrl_event (key)", kSmallSendBuffer, [state] {
        orbperix_remote_event key;
        std::memset(&key, 0, sizeof(key));
        key.type = ORBPERIX_REMOTE_KEY;
        key.payload.key.key_value1 = 0x41;
        return orbperix_input_post_remote_ctrl_event(state->input, &kButton, &key);
    }));
    steps.push_back(SendDataStep("orbperix_input_send_data", [state] {
        std::vector<uint8_t> bytes = Payload(kSentData);
        const orbperix_binary data{1, 2, bytes.data(), kSentData};
        return orbperix_input_send_data(state->input, "c-tab", -1, &data);
    }));
    steps.push_back(Step{"peer device change (C listener)", [] {
                             return CDelivered(&Seen::device, false, [] {
                                 perix_sim_peer_post_device_change(perix_sim_last_handle(), "c-tab", 1, 2);
                                 perix_sim_peer_flush();
                             });
                         }});
    steps.push_back(PeerButtonStep("peer button data (C listener)", "c-tab", &g_cseen));
    steps.push_back(PeerDataStep("peer data (C listener)", &g_cseen));
    steps.push_back(Step{"orbperix_create_source_provider and init", [state] {
                             state->source = orbperix_create_source_provider();
                             return state->source != 0 ? orbperix_source_init(state->source) : -1;
                         }});
    steps.push_back(RegisterStep("orbperix_source_register_listener", [state] {
        return orbperix_source_register_listener(state->source, &state->sourcePeer, &state->listener,
                                                 state.get());
    }));
    steps.push_back(Step{"orbperix_source_open_audio", [state] {
                             orbperix_audio_param param;
                             std::memset(&param, 0, sizeof(param));
                             return orbperix_source_open_audio(state->source, &kAudio, &param);
                         }});
    steps.push_back(AudioDelivery("peer audio (C listener)", kAudio.device_id, kAudio.service_id, &g_cseen));
    steps.push_back(Step{"orbperix_create_sink_provider, init and connect", [state] {
                             state->sink = orbperix_create_sink_provider();
                             if (state->sink == 0) {
                                 return -1;
                             }
                             const int r = orbperix_sink_init(state->sink);
                             orbperix_device_info peer = CPeer("c-sink");
                             return r != 0 ? r : orbperix_sink_connect_device(state->sink, &peer);
                         }});
    steps.push_back(Step{"orbperix_sink_deinit", [state] { return orbperix_sink_deinit(state->sink); }});
    steps.push_back(Step{"orbperix_input_disconnect_device", [state] {
                             return orbperix_input_disconnect_device(state->input, &state->inputPeer);
                         }});
    steps.push_back(Step{"orbperix_input_deinit", [state] { return orbperix_input_deinit(state->input); }});
    steps.push_back(DestroyCStep("orbperix_destroy_input_provider", state, &State::input, &orbperix_destroy_input_provider));
    steps.push_back(DestroyCStep("orbperix_destroy_source_provider", state, &State::source, &orbperix_destroy_source_provider));
    steps.push_back(DestroyCStep("orbperix_destroy_sink_provider", state, &State::sink, &orbperix_destroy_sink_provider));
    steps.push_back(Step{"orbperix_finalize", [] {
                             orbperix_finalize();
                             return orbperix_is_initialized() == 0 ? 0 : -1;
                         }});
    return sweep::Scenario{"C interface session", steps, [state] {
                               if (state->input != 0) {
                                   orbperix_destroy_input_provider(state->input);
                               }
                               if (state->source != 0) {
                                   orbperix_destroy_source_provider(state->source);
                               }
                               if (state->sink != 0) {
                                   orbperix_destroy_sink_provider(state->sink);
                               }
                               state->input = 0;
                               state->source = 0;
                               state->sink = 0;
                               orbperix_finalize();
                               ResetEngine();
                               g_cseen = Seen();
                           }};
}

// ---- The cast bridge, from C++ and from C ----

namespace {

class FakeCastSession : public ICastSession {
public:
    int RegisterListener(std::shared_ptr<ICastSessionListener> listener) override {
        listener_ = std::move(listener);
        return 0;
    }
    int UnregisterListener() override {
        listener_.reset();
        return 0;
    }
    int AddDevice(const std::string& deviceId) override { return deviceId.empty() ? -1 : 0; }
    int RemoveDevice(const std::string& deviceId) override { return deviceId.empty() ? -1 : 0; }
    int StartAuth(const std::string&) override { return 0; }
    int GetSessionId(std::string& sessionId) override {
        sessionId = "cast-session-identifier-0001";
        return 0;
    }
    int SetSessionProperty(const CastSessionProperty&) override { return 0; }
    int Play(const std::string&) override { return 0; }
    int Release() override { return 0; }

private:
    std::shared_ptr<ICastSessionListener> listener_;
};

class FakeServiceListener : public ICastServiceListener {
public:
    void OnServiceDied() override {}
};

void OnCastDied(void*) {}
void OnCastEvent(void*, int, const char*, uint32_t) {}

}  // namespace

sweep::Scenario CastBridge() {
    struct State {
        std::shared_ptr<ICastSession> session;
        orbperix_cast_session_handle handle = 0;
    };
    auto state = std::make_shared<State>();
    std::vector<Step> steps;
    steps.push_back(Step{"InitCastEngine", [] {
                             screenrelay_test::SetResults(true, 0, std::make_shared<FakeCastSession>(), true);
                             const int r = Manager().InitCastEngine(std::make_shared<FakeServiceListener>());
                             return r == 1 ? 0 : -1;
                         }});
    steps.push_back(Step{"SetCastEngineLocalDevice", [] {
                             const CastLocalDevice device{"cast-local-device-with-a-long-id",
                                                          "cast local device name, long", 1,
                                                          "192.168.100.200"};
                             return Manager().SetCastEngineLocalDevice(device);
                         }});
    steps.push_back(Step{"CreateCastSession", [state] {
                             state->session = Manager().CreateCastSession(CastSessionProperty{1, 2, 1920, 1080, 60, 48000});
                             return state->session ? 0 : -1;
                         }});
    steps.push_back(Step{"DestroyCastSession", [state] {
                             const bool destroyed = Manager().DestroyCastSession(state->session);
                             state->session.reset();
                             return destroyed ? 0 : -1;
                         }});
    NeedsProvider(steps, 3, 4, [state] { return state->session != nullptr; });
    steps.push_back(Step{"orbperix_init_cast_engine", [] {
                             return orbperix_init_cast_engine(&OnCastDied, nullptr) == 1 ? 0 : -1;
                         }});
    steps.push_back(Step{"orbperix_set_cast_engine_local_device", [] {
                             const orbperix_cast_local_device device{"cast-local-device-with-a-long-id",
                                                                     "cast local device name, long", 1,
                                                                     "192.168.100.200"};
                             return orbperix_set_cast_engine_local_device(&device);
                         }});
    steps.push_back(Step{"orbperix_create_cast_session", [state] {
                             const orbperix_cast_session_property property{1, 2, 1920, 1080, 60, 48000};
                             state->handle = orbperix_create_cast_session(&property);
                             return state->handle != 0 ? 0 : -1;
                         }});
    steps.push_back(Step{"orbperix_cast_session_register_listener", [state] {
                             return orbperix_cast_session_register_listener(state->handle, &OnCastEvent, nullptr);
                         }});
    steps.push_back(Step{"orbperix_cast_session_add_device", [state] {
                             return orbperix_cast_session_add_device(state->handle, "cast-peer-with-a-long-identifier", -1);
                         }});
    steps.push_back(Step{"orbperix_cast_session_get_session_id", [state] {
                             char id[64];
                             uint32_t length = 0;
                             return orbperix_cast_session_get_session_id(state->handle, id, sizeof(id), &length);
                         }});
    steps.push_back(Step{"orbperix_destroy_cast_session", [state] {
                             const int r = orbperix_destroy_cast_session(state->handle);
                             state->handle = 0;
                             return r == 1 ? 0 : r;
                         }});
    return sweep::Scenario{"cast bridge", steps, [state] {
                               state->session.reset();
                               if (state->handle != 0) {
                                   orbperix_destroy_cast_session(state->handle);
                                   state->handle = 0;
                               }
                               screenrelay_test::Reset();
                               ResetEngine();
                           }};
}

}  // namespace scenarios
