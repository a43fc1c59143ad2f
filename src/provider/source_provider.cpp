#include "provider/source_provider.h"

#include "log/log.h"
#include "platform/platform.h"
#include "util/no_destructor.h"

namespace OrbPerix {

namespace {
// Registered with the engine by address; the same records for every source provider, valid
// for as long as the library is loaded.
constexpr PerixStreamCallback kAudioCallback{&SourceProvider::AudioNotify};
constexpr PerixStreamCallback kRefreshCallback{&SourceProvider::PartialRefreshNotify};
}  // namespace

SessionStore& SourceKind::Sessions() noexcept { return SourceState().sessions; }

bool SourceKind::Initialized() noexcept {
    return SourceState().initialized.load(std::memory_order_relaxed);
}

namespace {
// The engine's three general callbacks for this kind (engine threads).
void OnSourceDeviceChange(void* handle, const void* notify) noexcept {
    ForwardDeviceChange(SourceKind::Sessions(), handle,
                        static_cast<const PerixDeviceChangeNotify*>(notify));
}
void OnSourceServiceChange(void* handle, const void* notify) noexcept {
    ForwardServiceChange(SourceKind::Sessions(), handle,
                         static_cast<const PerixServiceChangeNotify*>(notify));
}
void OnSourceDataReceive(void* handle, const void* data) noexcept {
    ForwardDataReceive(SourceKind::Sessions(), handle, static_cast<const BinaryData*>(data));
}

// The source kind for the shared session code; its engine listener record is kept by the engine.
const SessionKind kSourceSessionKind = {
    &SourceKind::Sessions,
    &SourceKind::Initialized,
    "Please initialize SourceProvider first",
    {&OnSourceDeviceChange, &OnSourceServiceChange, &OnSourceDataReceive},
    {"OrbPerix::SourceProvider::ConnectDevice",
     "OrbPerix::SourceProvider::CreateServiceHandler",
     "OrbPerix::SourceProvider::DisconnectDevice",
     "OrbPerix::SourceProvider::RegisterDataListener",
     "OrbPerix::SourceProvider::RegisterEventCallback",
     "OrbPerix::SourceProvider::RegisterPERIXListener",
     "OrbPerix::SourceProvider::SendBinaryData",
     "OrbPerix::SourceProvider::StartDeviceService",
     "OrbPerix::SourceProvider::StopDeviceService",
     "OrbPerix::SourceProvider::UnRegisterDataListener",
     "OrbPerix::SourceProvider::UnRegisterListener"}};
}  // namespace

SourceClassState& SourceState() noexcept {
    static NoDestructor<SourceClassState> state;
    return *state;
}

SourceProvider::SourceProvider(const EngineLoad& load)
    : SessionProvider(kSourceSessionKind, load), load_(load), state_(SourceState()) {
    SourceClassState& state = state_;
    state.initialized.store(false, std::memory_order_relaxed);
    state.clockFrequency.store(platform::PerformanceFrequency(), std::memory_order_relaxed);
    state.clockStart.store(platform::PerformanceCounter(), std::memory_order_relaxed);
}

SourceProvider::~SourceProvider() { TearDown(); }

int SourceProvider::Init() {
    SourceState().initialized.store(true, std::memory_order_relaxed);
    return 0;
}

void SourceProvider::DeInit() { TearDown(); }

void SourceProvider::TearDown() noexcept {
    // Test and clear in one step, so that two threads de-initialising together tear down once.
    if (!SourceState().initialized.exchange(false, std::memory_order_relaxed)) {
        return;
    }
    ops_.TearDownSessions();
}

int SourceProvider::RegisterPERIXListener(PERIXInfo* deviceInfo, ProviderListener* listener) {
    return RegisterPERIXListener(deviceInfo, listener, HostRoute{});
}

int SourceProvider::RegisterPERIXListener(PERIXInfo* deviceInfo, ProviderListener* listener,
                                          const HostRoute& route) {
    static const char* const kScope = "OrbPerix::SourceProvider::RegisterPERIXListener";
    const int steps = ops_.RegisterPERIXListenerSteps(deviceInfo, listener, route);
    if (steps != 0) {
        return steps;
    }
    const int audio = engine::Call(load_, load_.audio.RegisterCallback, &kAudioCallback);
    if (audio != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "Register audioHandler RegisterCallback failed: ",
                   audio);
        return audio;
    }
    const int refresh = engine::Call(load_, load_.refresh.RegisterCallback, &kRefreshCallback);
    if (refresh != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope,
                   "Register partialRefreshHandler RegisterCallback failed: ", refresh);
        return refresh;
    }
    return 0;
}

}  // namespace OrbPerix
