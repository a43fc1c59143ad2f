// InputProvider: construction, life cycle and the connection operations, which are the shared
// SessionOps code instantiated for the input kind.
#include "provider/input_provider.h"

#include <new>
#include <system_error>

#include "log/log.h"
#include "platform/platform.h"

namespace OrbPerix {

namespace {
// Constant-initialised and trivially destructible: valid from load to unload, whatever the
// order in which other statics (the manager holding providers) are destroyed.
InputState g_inputState;
}  // namespace

InputState& InputGlobals() noexcept { return g_inputState; }

SessionStore& InputKind::Sessions() noexcept {
    // Never destroyed: providers kept by the manager are destroyed at process exit and still
    // tear down their sessions then, whatever the order of static destruction.
    alignas(SessionStore) static unsigned char storage[sizeof(SessionStore)];
    static SessionStore* const store = new (storage) SessionStore();
    return *store;
}

bool InputKind::Initialized() noexcept {
    return g_inputState.heartbeatRunning.load(std::memory_order_relaxed);
}

InputProvider::InputProvider(const OrbPERIXHandler& handler, const ButtonHandlerSource& button)
    : ops_(handler) {
    // Filled once: the engine may read the record on its threads at any later time.
    buttonCallback_.notify = &InputProvider::ButtonNotify;

    InputState& g = g_inputState;
    g.registerCallback.store(button.RegisterCallback, std::memory_order_relaxed);
    g.buttonOpen.store(button.ButtonOpen, std::memory_order_relaxed);
    g.buttonClose.store(button.ButtonClose, std::memory_order_relaxed);
    g.buttonWrite.store(button.ButtonWriteStreamBuffer, std::memory_order_relaxed);
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
    stopHeartbeat_.store(false, std::memory_order_relaxed);
    heartbeatReleased_.store(false, std::memory_order_relaxed);
    try {
        heartbeat_ = std::thread(&InputProvider::ButtonHeart, &stopHeartbeat_, &heartbeatReleased_);
    } catch (const std::system_error& error) {
        log::Trace(LOG_MESSAGE_ERROR, "OrbPerix::InputProvider::Init",
                   "Init, start heartbeat thread failed: ", error.code().value());
        return -13;
    }
    // The flag is set only after the launch; the thread checks it once, after this release.
    g_inputState.heartbeatRunning.store(true, std::memory_order_relaxed);
    heartbeatReleased_.store(true, std::memory_order_release);
    return 0;
}

void InputProvider::DeInit() {
    if (!g_inputState.heartbeatRunning.exchange(false, std::memory_order_relaxed)) {
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
    heartbeat_.join();
}

void InputProvider::StopOwnHeartbeat() noexcept {
    if (!heartbeat_.joinable()) {
        return;
    }
    if (heartbeat_.get_id() == std::this_thread::get_id()) {
        // Destroyed from its own heartbeat thread (the host dropped its last reference there):
        // the thread ends on its own once this stop is seen.
        stopHeartbeat_.store(true, std::memory_order_relaxed);
        heartbeat_.detach();
        return;
    }
    stopHeartbeat_.store(true, std::memory_order_relaxed);
    heartbeatReleased_.store(true, std::memory_order_release);
    try {
        heartbeat_.join();
    } catch (const std::system_error&) {
        // Only a self-join can fail here, which is excluded above.
    }
}

int InputProvider::ConnectDevice(PERIXInfo* deviceInfo) { return ops_.ConnectDevice(deviceInfo); }

int InputProvider::DisconnectDevice(PERIXInfo* deviceInfo) {
    return ops_.DisconnectDevice(deviceInfo);
}

int InputProvider::RegisterPERIXListener(PERIXInfo* deviceInfo, ProviderListener* listener) {
    const int registered = ops_.RegisterPERIXListenerSteps(deviceInfo, listener);
    if (registered != 0) {
        return registered;
    }
    const int callback =
        g_inputState.registerCallback.load(std::memory_order_relaxed)(&buttonCallback_);
    if (callback != 0) {
        log::Trace(LOG_MESSAGE_ERROR, "OrbPerix::InputProvider::RegisterPERIXListener",
                   "Register buttonHandler RegisterCallback failed: ", callback);
        return callback;
    }
    return 0;
}

int InputProvider::UnRegisterListener(PERIXInfo* deviceInfo) {
    return ops_.UnRegisterListener(deviceInfo);
}

int InputProvider::RegisterDataListener(const std::string* deviceId, uint32_t type,
                                        void* callback) {
    return ops_.RegisterDataListener(deviceId, type, callback);
}

int InputProvider::UnRegisterDataListener(const std::string* deviceId, uint32_t type) {
    return ops_.UnRegisterDataListener(deviceId, type);
}

int InputProvider::SendData(const std::string* deviceId, BinaryData* data) {
    return ops_.SendData(deviceId, data);
}

int InputProvider::SendDataNoResult(const std::string* deviceId, BinaryData* data) {
    return ops_.SendDataNoResult(deviceId, data);
}

int InputProvider::StartDeviceService(ServiceInfo* service, void* reserved) {
    return ops_.StartDeviceService(service, reserved);
}

int InputProvider::StopDeviceService(ServiceInfo* service) {
    return ops_.StopDeviceService(service);
}

void InputProvider::RegisterEventCallback(std::string deviceId, uint32_t type, void* callback) {
    ops_.RegisterEventCallback(deviceId, type, callback);
}

void InputProvider::SendBinaryData(const std::string* deviceId, BinaryData* data) {
    ops_.SendBinaryData(deviceId, data);
}

int InputProvider::SendByHandler(void* a, void* b, void* c) { return ops_.SendByHandler(a, b, c); }

uint32_t InputProvider::NowMilliseconds() noexcept {
    const int64_t start = g_inputState.clockStart.load(std::memory_order_relaxed);
    const int64_t frequency = g_inputState.clockFrequency.load(std::memory_order_relaxed);
    const int64_t elapsed = (platform::PerformanceCounter() - start) * 1000 / frequency;
    return static_cast<uint32_t>(elapsed);
}

}  // namespace OrbPerix
