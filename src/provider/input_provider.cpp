// InputProvider: construction, life cycle and RegisterPERIXListener (the connection and services
// operations are SessionProvider's, run for the input kind).
#include "provider/input_provider.h"

#include <new>
#include <system_error>

#include "log/log.h"
#include "platform/platform.h"
#include "util/elapsed.h"
#include "util/no_destructor.h"
#include "util/result.h"

namespace OrbPerix {

namespace {
constexpr const char* kInitScope = "OrbPerix::InputProvider::Init";
// Registered with the button channel by address; one record for every input provider, valid
// for as long as the library is loaded.
constexpr PerixButtonCallback kButtonCallback{&InputProvider::ButtonNotify};

// The heartbeat thread's callable. A type of internal linkage keeps std::thread's state
// instantiation (its vtable and typeinfo) out of the library's exported symbols, which a
// function pointer over the provider's own types would not.
struct HeartbeatEntry {
    std::shared_ptr<InputProvider::HeartbeatControl> control;
    void operator()() const { InputProvider::ButtonHeart(control); }
};
}  // namespace

InputState& InputGlobals() noexcept {
    static NoDestructor<InputState> state;
    return *state;
}

SessionStore& InputKind::Sessions() noexcept { return InputGlobals().sessions; }

bool InputKind::Initialized() noexcept {
    return InputGlobals().heartbeatRunning.load(std::memory_order_relaxed);
}

namespace {
// The engine's three general callbacks for this kind (engine threads).
void OnInputDeviceChange(void* handle, const void* notify) noexcept {
    ForwardDeviceChange(InputKind::Sessions(), handle,
                        static_cast<const PerixDeviceChangeNotify*>(notify));
}
void OnInputServiceChange(void* handle, const void* notify) noexcept {
    ForwardServiceChange(InputKind::Sessions(), handle,
                         static_cast<const PerixServiceChangeNotify*>(notify));
}
void OnInputDataReceive(void* handle, const void* data) noexcept {
    ForwardDataReceive(InputKind::Sessions(), handle, static_cast<const BinaryData*>(data));
}

// The input kind for the shared session code; its engine listener record is kept by the engine.
const SessionKind kInputSessionKind = {
    &InputKind::Sessions,
    &InputKind::Initialized,
    "Please initialize InputProvider first",
    {&OnInputDeviceChange, &OnInputServiceChange, &OnInputDataReceive},
    {"OrbPerix::InputProvider::ConnectDevice",
     "OrbPerix::InputProvider::CreateServiceHandler",
     "OrbPerix::InputProvider::DisconnectDevice",
     "OrbPerix::InputProvider::RegisterDataListener",
     "OrbPerix::InputProvider::RegisterEventCallback",
     "OrbPerix::InputProvider::RegisterPERIXListener",
     "OrbPerix::InputProvider::SendBinaryData",
     "OrbPerix::InputProvider::StartDeviceService",
     "OrbPerix::InputProvider::StopDeviceService",
     "OrbPerix::InputProvider::UnRegisterDataListener",
     "OrbPerix::InputProvider::UnRegisterListener"}};
}  // namespace

InputProvider::InputProvider(const EngineLoad& load)
    : SessionProvider(kInputSessionKind, load) {
    InputState& g = InputGlobals();
    g.buttonLoad.store(&load, std::memory_order_release);
    g.heartbeatRunning.store(false, std::memory_order_relaxed);
    g.buttonOpened.store(false, std::memory_order_relaxed);
    g.lastInputTime.store(0, std::memory_order_relaxed);
    g.clockFrequency.store(platform::PerformanceFrequency(), std::memory_order_relaxed);
    g.clockStart.store(platform::PerformanceCounter(), std::memory_order_relaxed);
}

InputProvider::~InputProvider() {
    DeInit();
    // Another provider's creation may have cleared heartbeatRunning, so that DeInit returned
    // at once and left this thread object joinable: stop and join it rather than abort.
    StopOwnHeartbeat();
}

int InputProvider::Init() {
    // A second Init on a provider whose heartbeat thread still exists replaces that thread:
    // the old one is stopped and joined first (the process is never aborted).
    StopOwnHeartbeat();
    try {
        heartbeatControl_ = std::make_shared<HeartbeatControl>();
        heartbeat_ = std::thread(HeartbeatEntry{heartbeatControl_});
    } catch (const std::system_error& error) {
        log::Trace(LOG_MESSAGE_ERROR, kInitScope, "Init, start heartbeat thread failed: ",
                   error.code().value());
        heartbeatControl_.reset();
        return kUnavailable;
    } catch (const std::bad_alloc&) {
        log::Trace(LOG_MESSAGE_ERROR, kInitScope, "Init, start heartbeat thread failed: ",
                   static_cast<int>(std::errc::not_enough_memory));
        heartbeatControl_.reset();
        return kUnavailable;
    }
    // The flag is set only after the launch; the thread checks it once, after this release.
    InputGlobals().heartbeatRunning.store(true, std::memory_order_relaxed);
    heartbeatControl_->released.store(true, std::memory_order_release);
    return 0;
}

void InputProvider::DeInit() {
    if (!InputGlobals().heartbeatRunning.exchange(false, std::memory_order_relaxed)) {
        return;
    }
    ops_.TearDownSessions();
    if (!heartbeat_.joinable()) {
        return;
    }
    if (heartbeat_.get_id() == std::this_thread::get_id()) {
        // The thread cannot join itself; it ends on its own now that the flag is clear, and
        // the destructor joins it from another thread.
        log::Trace(LOG_MESSAGE_ERROR, "OrbPerix::InputProvider::DeInit",
                   "DeInit called on the heartbeat thread, not joined");
        return;
    }
    StopOwnHeartbeat();
}

void InputProvider::StopOwnHeartbeat() noexcept {
    if (!heartbeat_.joinable()) {
        return;
    }
    heartbeatControl_->stop.store(true, std::memory_order_relaxed);
    heartbeatControl_->released.store(true, std::memory_order_release);
    // On its own thread (the last reference dropped there), or while the process exits (the
    // thread may already be gone and joining it can hang): let it go. It holds its own
    // reference to the control block and ends at its next check.
    if (heartbeat_.get_id() == std::this_thread::get_id() || platform::ProcessIsExiting()) {
        heartbeat_.detach();
        return;
    }
    try {
        heartbeat_.join();
    } catch (const std::system_error&) {
        heartbeat_.detach();
    }
}

int InputProvider::RegisterPERIXListener(PERIXInfo* deviceInfo, ProviderListener* listener) {
    return RegisterPERIXListener(deviceInfo, listener, HostRoute{});
}

int InputProvider::RegisterPERIXListener(PERIXInfo* deviceInfo, ProviderListener* listener,
                                         const HostRoute& route) {
    const int registered = ops_.RegisterPERIXListenerSteps(deviceInfo, listener, route);
    if (registered != 0) {
        return registered;
    }
    const EngineLoad& button = *InputGlobals().buttonLoad.load(std::memory_order_acquire);
    const int callback = engine::Call(button, button.button.RegisterCallback, &kButtonCallback);
    if (callback != 0) {
        log::Trace(LOG_MESSAGE_ERROR, "OrbPerix::InputProvider::RegisterPERIXListener",
                   "Register buttonHandler RegisterCallback failed: ", callback);
        return callback;
    }
    return 0;
}

uint32_t InputProvider::NowMilliseconds() noexcept {
    const InputState& g = InputGlobals();
    const int64_t start = g.clockStart.load(std::memory_order_relaxed);
    const int64_t frequency = g.clockFrequency.load(std::memory_order_relaxed);
    const int64_t elapsed = ElapsedMilliseconds(platform::PerformanceCounter(), start, frequency);
    return static_cast<uint32_t>(elapsed);
}

}  // namespace OrbPerix
