#include "provider/sink_provider.h"

#include <cinttypes>
#include <cstdio>

#include "log/log.h"
#include "util/result.h"

namespace OrbPerix {

void FormatTraceId(uint64_t traceId, char (&out)[17]) {
    // %x already writes lower-case digits; the width gives the one leading zero below 0x10.
    std::snprintf(out, sizeof(out), "%02" PRIx64, traceId);
}

namespace {

// The one line of an operation refused because DisconnectDevice released the Mesh handle.
void LogReleasedByDisconnect(const char* scope) noexcept {
    log::Trace(LOG_MESSAGE_ERROR, scope,
               "Mesh provider released by DisconnectDevice, not passed to the engine");
}

}  // namespace

class SinkProvider::HandleUse {
public:
    explicit HandleUse(SinkProvider& sink) noexcept : sink_(sink) {
        std::lock_guard<std::mutex> lock(sink_.providerMutex_);
        released_ = sink_.meshReleased_;
        handle_ = released_ ? nullptr : sink_.meshHandle_;
        if (handle_ != nullptr) {
            ++sink_.meshUsers_;
        }
    }
    ~HandleUse() {
        if (handle_ == nullptr) {
            return;
        }
        void* retired = nullptr;
        {
            std::lock_guard<std::mutex> lock(sink_.providerMutex_);
            if (--sink_.meshUsers_ == 0) {
                retired = sink_.meshRetired_;
                sink_.meshRetired_ = nullptr;
            }
        }
        if (retired != nullptr) {
            sink_.ReleaseMesh(retired);
        }
    }
    HandleUse(const HandleUse&) = delete;
    HandleUse& operator=(const HandleUse&) = delete;
    void* Handle() const noexcept { return handle_; }
    // The sink keeps a handle that DisconnectDevice released: no engine call may receive it.
    bool Released() const noexcept { return released_; }

private:
    SinkProvider& sink_;
    void* handle_ = nullptr;
    bool released_ = false;
};

SinkProvider::SinkProvider(const EngineLoad& load) : load_(load) {}

SinkProvider::~SinkProvider() = default;

int SinkProvider::Init() {
    sinkInitialized_.store(true, std::memory_order_relaxed);
    return 0;
}

void SinkProvider::ReleaseMesh(void* handle) noexcept {
    engine::Call(load_, load_.main.PERIXReleaseServiceHandle, handle, nullptr, nullptr);
}

void SinkProvider::DeInit() {
    if (!sinkInitialized_.exchange(false, std::memory_order_relaxed)) {
        return;
    }
    void* release = nullptr;
    {
        std::lock_guard<std::mutex> lock(providerMutex_);
        if (meshHandle_ == nullptr) {
            return;
        }
        if (meshReleased_) {
            // DisconnectDevice gave it back already: cleared, never released twice.
            meshReleased_ = false;
        } else if (meshUsers_ == 0) {
            release = meshHandle_;
        } else {
            meshRetired_ = meshHandle_;  // the last call still using it releases it
        }
        meshHandle_ = nullptr;
    }
    if (release != nullptr) {
        ReleaseMesh(release);
    }
}

int SinkProvider::CreateMeshProvider(PERIXInfo* deviceInfo) {
    static const char* const kScope = "OrbPerix::SinkProvider::CreateMeshProvider";
    bool exists = false;
    {
        std::lock_guard<std::mutex> lock(providerMutex_);
        exists = meshHandle_ != nullptr;
    }
    if (exists) {
        log::Trace(LOG_MESSAGE_INFO, kScope, L"MeshProvider already exist");
        return 0;
    }
    void* created = engine::Call(load_, load_.main.PERIXCreateServiceHandle, deviceInfo);
    if (created == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, L"PERIXCreateServiceHandle fail");
        return kUnavailable;
    }
    bool kept = false;
    {
        std::lock_guard<std::mutex> lock(providerMutex_);
        if (meshHandle_ == nullptr) {
            meshHandle_ = created;
            kept = true;
        }
    }
    if (!kept) {
        // Another thread created one meanwhile: the first handle stays, this one goes back.
        ReleaseMesh(created);
    }
    return 0;
}

int SinkProvider::ConnectDevice(PERIXInfo* deviceInfo) {
    static const char* const kScope = "OrbPerix::SinkProvider::ConnectDevice";
    // Virtual on purpose: a derived sink's own CreateMeshProvider decides.
    if (this->CreateMeshProvider(deviceInfo) != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, L"PERIXCreateServiceHandle fail");
        return kUnavailable;
    }
    int r = kEngineNotAvailable;
    {
        HandleUse mesh(*this);
        if (mesh.Released()) {
            LogReleasedByDisconnect(kScope);
            r = kUnavailable;
        } else {
            r = engine::Call(load_, load_.main.PERIXStartService, mesh.Handle(), deviceInfo);
        }
    }
    // The port is checked only after the engine has been asked to start: callers rely on the
    // service having been started even when the record is refused.
    if (deviceInfo != nullptr && deviceInfo->serverPort == 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, L"PERIXInfo serverport is 0");
        return kZeroServerPort;
    }
    return r;
}

int SinkProvider::DisconnectDevice(PERIXInfo* deviceInfo, void* arg) {
    void* handle = nullptr;
    {
        std::lock_guard<std::mutex> lock(providerMutex_);
        if (!meshReleased_ && meshHandle_ != nullptr) {
            // The engine releases the handle in this call. The sink keeps it (a second
            // CreateMeshProvider still finds it, DeInit clears it), but from here on no engine
            // call receives it and DeInit does not release it again. Marked before the call,
            // so that a DeInit racing it never releases it too.
            handle = meshHandle_;
            meshReleased_ = true;
        }
    }
    if (handle != nullptr) {
        return engine::Call(load_, load_.main.PERIXReleaseServiceHandle, handle,
                            static_cast<void*>(deviceInfo), arg);
    }
    log::Trace(LOG_MESSAGE_ERROR, "OrbPerix::SinkProvider::DisconnectDevice",
               L"PERIXCreateServiceHandle fail");
    return kUnavailable;
}

int SinkProvider::GetConnectionStatus() {
    static const char* const kScope = "OrbPerix::SinkProvider::GetConnectionStatus";
    uint64_t traceId = 0;
    int r = kEngineNotAvailable;
    {
        HandleUse mesh(*this);
        // A released handle answers from the sink's own state: no Mesh provider, -13.
        r = mesh.Released()
                ? kUnavailable
                : engine::Call(load_, load_.main.PERIXGetConnectionStatus, mesh.Handle(), &traceId);
    }
    if (r == 0 && traceId != 0) {
        char text[17];
        FormatTraceId(traceId, text);
        log::Trace(LOG_MESSAGE_ERROR, kScope, "traceId: ", static_cast<const char*>(text));
    }
    log::Trace(LOG_MESSAGE_INFO, kScope, "Get connection status ret: ", r);
    return r;
}

int SinkProvider::RegisterEngineCallback(uint32_t type, void* callback) {
    HandleUse mesh(*this);
    if (mesh.Released()) {
        LogReleasedByDisconnect("OrbPerix::SinkProvider::RegisterEngineCallback");
        return kUnavailable;
    }
    return engine::Call(load_, load_.main.PERIXRegisterCallback, mesh.Handle(), type, callback);
}

int SinkProvider::SendByHandler(void* a, void* b, void* c) {
    HandleUse mesh(*this);
    if (mesh.Released()) {
        LogReleasedByDisconnect("OrbPerix::SinkProvider::SendByHandler");
        return kUnavailable;
    }
    return engine::Call(load_, load_.main.PERIXPassThrough, mesh.Handle(), a, b, c);
}

}  // namespace OrbPerix
