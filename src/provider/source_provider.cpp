#include "provider/source_provider.h"

#include <exception>

#include "log/log.h"
#include "platform/platform.h"

namespace OrbPerix {

SessionStore& SourceKind::Sessions() noexcept {
    static SessionStore sessions;
    return sessions;
}

bool SourceKind::Initialized() noexcept {
    return SourceState().initialized.load(std::memory_order_relaxed);
}

SourceClassState& SourceState() noexcept {
    static SourceClassState state;
    return state;
}

SourceProvider::SourceProvider(const OrbPERIXHandler& handler, const AudioHandlerSource& audio,
                               const RefreshHandlerSource& refresh)
    : ops_(handler),
      audio_(audio),
      refresh_(refresh),
      audioCallback_{&SourceProvider::AudioNotify},
      refreshCallback_{&SourceProvider::PartialRefreshNotify} {
    SourceClassState& state = SourceState();
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
    try {
        ops_.TearDownSessions();
    } catch (const std::exception&) {
        // Only the provider mutex can fail here (a system error); the sessions then stay for
        // the next teardown rather than ending the process.
    }
}

int SourceProvider::RegisterPERIXListener(PERIXInfo* deviceInfo, ProviderListener* listener) {
    static const char* const kScope = "OrbPerix::SourceProvider::RegisterPERIXListener";
    const int steps = ops_.RegisterPERIXListenerSteps(deviceInfo, listener);
    if (steps != 0) {
        return steps;
    }
    const int audio = audio_.RegisterCallback(&audioCallback_);
    if (audio != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "Register audioHandler RegisterCallback failed: ",
                   audio);
        return audio;
    }
    const int refresh = refresh_.RegisterCallback(&refreshCallback_);
    if (refresh != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope,
                   "Register partialRefreshHandler RegisterCallback failed: ", refresh);
        return refresh;
    }
    return 0;
}

// ---- Shared with the input provider ----

int SourceProvider::ConnectDevice(PERIXInfo* deviceInfo) { return ops_.ConnectDevice(deviceInfo); }

int SourceProvider::DisconnectDevice(PERIXInfo* deviceInfo) {
    return ops_.DisconnectDevice(deviceInfo);
}

int SourceProvider::UnRegisterListener(PERIXInfo* deviceInfo) {
    return ops_.UnRegisterListener(deviceInfo);
}

int SourceProvider::RegisterDataListener(const std::string* deviceId, uint32_t type,
                                         void* callback) {
    return ops_.RegisterDataListener(deviceId, type, callback);
}

int SourceProvider::UnRegisterDataListener(const std::string* deviceId, uint32_t type) {
    return ops_.UnRegisterDataListener(deviceId, type);
}

int SourceProvider::SendData(const std::string* deviceId, BinaryData* data) {
    return ops_.SendData(deviceId, data);
}

int SourceProvider::SendDataNoResult(const std::string* deviceId, BinaryData* data) {
    return ops_.SendDataNoResult(deviceId, data);
}

void SourceProvider::SendBinaryData(const std::string* deviceId, BinaryData* data) {
    ops_.SendBinaryData(deviceId, data);
}

int SourceProvider::StartDeviceService(ServiceInfo* service, void* reserved) {
    return ops_.StartDeviceService(service, reserved);
}

int SourceProvider::StopDeviceService(ServiceInfo* service) {
    return ops_.StopDeviceService(service);
}

void SourceProvider::RegisterEventCallback(std::string deviceId, uint32_t type, void* callback) {
    ops_.RegisterEventCallback(deviceId, type, callback);
}

int SourceProvider::SendByHandler(void* a, void* b, void* c) { return ops_.SendByHandler(a, b, c); }

}  // namespace OrbPerix
