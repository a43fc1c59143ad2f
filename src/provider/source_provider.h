// SourceProvider: the provider of the sending side. Per peer it keeps one engine service
// handle and the host's listener (in the source kind's process-wide session store), opens the
// audio and partial-refresh channels, writes stream buffers and hands the engine's audio and
// partial-refresh deliveries to the host's listener as private copies.
//
// Its connection and services operations are SessionProvider's, run for the source kind: the
// code it shares with the input provider. The session store, the initialised flag and the time
// base are class-wide: shared by every SourceProvider in the process, separate from the input
// provider's.
//
// Threading: host threads call the operations; AudioNotify, PartialRefreshNotify and the
// engine listener functions run on engine threads. The store's lock is never held while the
// engine or a host listener runs. The channel operations take no lock.
#ifndef ORBPERIX_SRC_PROVIDER_SOURCE_PROVIDER_H_
#define ORBPERIX_SRC_PROVIDER_SOURCE_PROVIDER_H_

#include <atomic>
#include <cstdint>
#include <string>

#include "orbperix/engine_tables.h"
#include "orbperix/providers.h"
#include "provider/provider_common.h"
#include "provider/session_ops.h"
#include "provider/session_provider.h"
#include "provider/session_store.h"

namespace OrbPerix {

// The source kind's store and flag (its SessionKind record is in source_provider.cpp).
struct SourceKind {
    static SessionStore& Sessions() noexcept;
    static bool Initialized() noexcept;
};

struct SourceClassState;

class SourceProvider : public SessionProvider<ISourceProvider> {
public:
    // Binds to `load`, clears the class-wide initialised flag and restarts the class-wide
    // time base (frequency, then counter).
    explicit SourceProvider(const EngineLoad& load);
    // Tears down every source session when the kind is initialised; never throws.
    ~SourceProvider() override;

    SourceProvider(const SourceProvider&) = delete;
    SourceProvider& operator=(const SourceProvider&) = delete;

    int Init() override;
    void DeInit() override;
    // Creates the session and handle, then registers the engine listener, the audio callback
    // and the refresh callback, stopping at the first failure (nothing is rolled back).
    int RegisterPERIXListener(PERIXInfo* deviceInfo, ProviderListener* listener) override;
    // The same, keeping the C interface's listener in the session with `listener`'s entries.
    int RegisterPERIXListener(PERIXInfo* deviceInfo, ProviderListener* listener,
                              const HostRoute& route);

    // Audio channel (source_audio.cpp).
    int OpenAudio(ServiceInfo* service, AudioParam* audioParam) override;
    int CloseAudio(ServiceInfo* service) override;
    // Per-buffer path: no copy, no log, no lock; the caller's buffer goes to the engine.
    void AudioWriteStreamBuffer(ServiceInfo* service, uint8_t* data, uint32_t length) override;
    int AudioPassThrough(void* a, void* b) override;

    // Partial-refresh channel (source_refresh.cpp); service type 11 only for open and close.
    int OpenPartialRefresh(ServiceInfo* service) override;
    int ClosePartialRefresh(ServiceInfo* service) override;
    // Records the write time, then hands the caller's buffer to the engine (no copy).
    int PartialRefreshWriteStreamBuffer(ServiceInfo* service, uint8_t* data,
                                        int32_t length) override;

    // Engine-thread callbacks of the audio and refresh channels. Each delivery reaches the
    // listener of the session named by the record's device id as one private heap copy, freed
    // when the listener returns. 0 after the listener ran; -13 no session, no listener or no
    // memory; 22/34 a failed copy; -2 a null or malformed engine record; -13 also when the
    // listener threw.
    static int AudioNotify(const void* serviceId, const void* audioData) noexcept;
    static int PartialRefreshNotify(const void* serviceId, const void* refreshData) noexcept;

    // Milliseconds since the kind's time base at the last accepted refresh write, by the
    // coarse clock (a few milliseconds behind the precise one at most).
    uint32_t LastWriteTimeMs() const noexcept {
        return lastWriteTimeMs_.load(std::memory_order_relaxed);
    }

private:
    void TearDown() noexcept;
    // Stamps lastWriteTimeMs_ from a coarse reading; divides only when the reading moved.
    void StampWriteTime() noexcept;

    const EngineLoad& load_;      // audio and refresh tables are called through it
    SourceClassState& state_;     // the kind's state, held so writes skip the lookup's guard
    // The coarse ticks since the time base that lastWriteTimeMs_ was computed from (-1: none
    // yet). Writers race on both without harm: each pair is a true stamp of some write, and
    // a reader of the stamp never compares it more finely than a tick.
    std::atomic<int64_t> lastWriteTicks_{-1};
    std::atomic<uint32_t> lastWriteTimeMs_{0};
};

// The source kind's class-wide sessions, flag and time base, in a never-destroyed holder
// (SourceState): engine threads and providers destroyed late at exit may still use them.
// Relaxed atomics: providers are created, initialised and written to from different threads.
struct SourceClassState {
    SessionStore sessions;
    std::atomic<bool> initialized{false};
    std::atomic<int64_t> clockStart{0};
    std::atomic<int64_t> clockFrequency{1};
};
SourceClassState& SourceState() noexcept;

}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_PROVIDER_SOURCE_PROVIDER_H_
