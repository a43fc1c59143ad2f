#include "provider/sink_provider.h"

#include <cinttypes>
#include <cstdio>

#include "log/log.h"

namespace OrbPerix {

void FormatTraceId(uint64_t traceId, char (&out)[17]) {
    // %x already writes lower-case digits; the width gives the one leading zero below 0x10.
    std::snprintf(out, sizeof(out), "%02" PRIx64, traceId);
}

SinkProvider::SinkProvider(const OrbPERIXHandler& handler) : handler_(handler) {}

SinkProvider::~SinkProvider() = default;

int SinkProvider::Init() {
    sinkInitialized_ = true;
    return 0;
}

void SinkProvider::DeInit() {
    if (!sinkInitialized_) {
        return;
    }
    sinkInitialized_ = false;
    if (meshHandle_ != nullptr) {
        handler_.PERIXReleaseServiceHandle(meshHandle_, nullptr, nullptr);
        meshHandle_ = nullptr;
    }
}

int SinkProvider::CreateMeshProvider(PERIXInfo* deviceInfo) {
    static const char* const kScope = "OrbPerix::SinkProvider::CreateMeshProvider";
    if (meshHandle_ != nullptr) {
        log::Trace(LOG_MESSAGE_INFO, kScope, L"MeshProvider already exist");
        return 0;
    }
    meshHandle_ = handler_.PERIXCreateServiceHandle(deviceInfo);
    if (meshHandle_ == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, L"PERIXCreateServiceHandle fail");
        return -13;
    }
    return 0;
}

int SinkProvider::ConnectDevice(PERIXInfo* deviceInfo) {
    static const char* const kScope = "OrbPerix::SinkProvider::ConnectDevice";
    // Virtual on purpose: a derived sink's own CreateMeshProvider decides.
    if (this->CreateMeshProvider(deviceInfo) != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, L"PERIXCreateServiceHandle fail");
        return -13;
    }
    const int r = handler_.PERIXStartService(meshHandle_, deviceInfo);
    // The port is checked only after the engine has been asked to start: callers rely on the
    // service having been started even when the record is refused.
    if (deviceInfo != nullptr && deviceInfo->serverPort == 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, L"PERIXInfo serverport is 0");
        return -5;
    }
    return r;
}

int SinkProvider::DisconnectDevice(PERIXInfo* deviceInfo, void* arg) {
    if (meshHandle_ != nullptr) {
        return handler_.PERIXReleaseServiceHandle(meshHandle_, deviceInfo, arg);
    }
    log::Trace(LOG_MESSAGE_ERROR, "OrbPerix::SinkProvider::DisconnectDevice",
               L"PERIXCreateServiceHandle fail");
    return -13;
}

int SinkProvider::GetConnectionStatus() {
    static const char* const kScope = "OrbPerix::SinkProvider::GetConnectionStatus";
    uint64_t traceId = 0;
    const int r = handler_.PERIXGetConnectionStatus(meshHandle_, &traceId);
    if (r == 0 && traceId != 0) {
        char text[17];
        FormatTraceId(traceId, text);
        log::Trace(LOG_MESSAGE_ERROR, kScope, "traceId: ", static_cast<const char*>(text));
    }
    log::Trace(LOG_MESSAGE_INFO, kScope, "Get connection status ret: ", r);
    return r;
}

int SinkProvider::RegisterEngineCallback(uint32_t type, void* callback) {
    return handler_.PERIXRegisterCallback(meshHandle_, type, callback);
}

int SinkProvider::SendByHandler(void* a, void* b, void* c) {
    return handler_.PERIXPassThrough(meshHandle_, a, b, c);
}

}  // namespace OrbPerix
