// SinkProvider: the provider of the receiving side. It owns one engine service handle (the
// "Mesh provider", meshHandle) and forwards a few operations to the engine's main table with
// that handle first. No per-device sessions, no listeners.
//
// REQUIRES: the host serialises the calls on one sink object; no operation takes a lock.
#ifndef ORBPERIX_SRC_PROVIDER_SINK_PROVIDER_H_
#define ORBPERIX_SRC_PROVIDER_SINK_PROVIDER_H_

#include <cstdint>
#include <mutex>

#include "orbperix/engine_tables.h"
#include "orbperix/providers.h"

namespace OrbPerix {

class SinkProvider : public ISinkProvider {
public:
    // Copies the engine's main table; meshHandle null, not initialised.
    explicit SinkProvider(const OrbPERIXHandler& handler);
    // Does not release meshHandle: a sink destroyed without DeInit leaves it to the engine.
    ~SinkProvider() override;

    SinkProvider(const SinkProvider&) = delete;
    SinkProvider& operator=(const SinkProvider&) = delete;

    int Init() override;
    // Releases meshHandle when initialised; nothing otherwise.
    void DeInit() override;
    // Creates the Mesh provider on first use (through this object's own CreateMeshProvider),
    // starts the service, and only then refuses a record with server port 0 (-5).
    int ConnectDevice(PERIXInfo* deviceInfo) override;
    // 0 when the handle exists or was created; -13 when the engine gave none.
    int CreateMeshProvider(PERIXInfo* deviceInfo) override;
    // Hands (meshHandle, deviceInfo, arg) to PERIXReleaseServiceHandle; the handle is kept.
    int DisconnectDevice(PERIXInfo* deviceInfo, void* arg) override;
    // Engine status; a non-zero trace id is logged as lower-case hex.
    int GetConnectionStatus() override;
    int RegisterEngineCallback(uint32_t type, void* callback) override;
    int SendByHandler(void* a, void* b, void* c) override;

private:
    OrbPERIXHandler handler_;
    void* meshHandle_ = nullptr;
    bool sinkInitialized_ = false;
    // Kept for the provider's shape; the host serialises sink calls, so no operation locks it.
    std::mutex providerMutex_;
};

// Writes `traceId` as lower-case hexadecimal without leading zeros but with at least two
// digits ("0a", "1abc") into `out` (capacity >= 17). Exposed for tests.
void FormatTraceId(uint64_t traceId, char (&out)[17]);

}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_PROVIDER_SINK_PROVIDER_H_
