// SinkProvider: the provider of the receiving side. It owns one engine service handle (the
// "Mesh provider", meshHandle) and forwards a few operations to the engine's main table with
// that handle first. No per-device sessions, no listeners.
//
// Threads: a host is expected to serialise the calls on one sink object, but a call racing
// DeInit on another thread is safe: the Mesh handle is held for each engine call that passes it
// and released only once no such call is in flight (by whichever of them ends last). The small
// lock guarding that is never held while the engine runs.
//
// DisconnectDevice hands the handle to PERIXReleaseServiceHandle, which releases it; the sink
// keeps it as the record that it has its Mesh provider (CreateMeshProvider still says so), but
// every later operation answers from the sink's own state instead of passing it to the engine,
// and DeInit clears it without a second release.
#ifndef ORBPERIX_SRC_PROVIDER_SINK_PROVIDER_H_
#define ORBPERIX_SRC_PROVIDER_SINK_PROVIDER_H_

#include <atomic>
#include <cstdint>
#include <mutex>

#include "engine/engine_gate.h"
#include "orbperix/providers.h"

namespace OrbPerix {

class SinkProvider : public ISinkProvider {
public:
    // Binds to `load`; meshHandle null, not initialised.
    explicit SinkProvider(const EngineLoad& load);
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
    // Hands (meshHandle, deviceInfo, arg) to PERIXReleaseServiceHandle; the handle is kept,
    // released: later operations return -13 without calling the engine.
    int DisconnectDevice(PERIXInfo* deviceInfo, void* arg) override;
    // Engine status (-13 without an engine call once DisconnectDevice released the handle); a
    // non-zero trace id is logged as lower-case hex.
    int GetConnectionStatus() override;
    int RegisterEngineCallback(uint32_t type, void* callback) override;
    int SendByHandler(void* a, void* b, void* c) override;

private:
    // The Mesh handle held for one engine call (null when there is none).
    class HandleUse;
    // Releases `handle` through PERIXReleaseServiceHandle (DeInit's release).
    void ReleaseMesh(void* handle) noexcept;

    const EngineLoad& load_;
    std::atomic<bool> sinkInitialized_{false};
    std::mutex providerMutex_;
    void* meshHandle_ = nullptr;    // GUARDED_BY(providerMutex_)
    uint32_t meshUsers_ = 0;        // GUARDED_BY(providerMutex_): calls in flight with it
    void* meshRetired_ = nullptr;   // GUARDED_BY(providerMutex_): released by the last user
    bool meshReleased_ = false;     // GUARDED_BY(providerMutex_): meshHandle_ given back by
                                    // DisconnectDevice
};

// Writes `traceId` as lower-case hexadecimal without leading zeros but with at least two
// digits ("0a", "1abc") into `out` (capacity >= 17). Exposed for tests.
void FormatTraceId(uint64_t traceId, char (&out)[17]);

}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_PROVIDER_SINK_PROVIDER_H_
