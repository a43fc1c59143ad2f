// InputProvider: sends input to peer devices through the PERIX engine: the button channel with
// its heartbeat, remote-control packets, binary data and virtual services.
//
// Process-wide state (one copy for all input providers, see InputState): the session store,
// the heartbeat and button-opened flags, the last input time, the time base and the engine
// load whose button table the kind uses. Creating an input provider resets all of it except
// the sessions.
//
// Threads: host threads call the virtual operations; engine threads call the OnDevice*/
// OnDataReceive forwarders and ButtonNotify; one heartbeat thread per initialised provider
// runs ButtonHeart. Flags and the last input time are relaxed atomics; the session store has a
// lock of its own that is never held while the engine or a host listener runs. Every engine
// call goes through the engine gate, so none reaches an engine that was finalised.
// REQUIRES: the host does not call Init, DeInit or the destructor of one provider from several
// threads at once.
#ifndef ORBPERIX_SRC_PROVIDER_INPUT_PROVIDER_H_
#define ORBPERIX_SRC_PROVIDER_INPUT_PROVIDER_H_

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "engine/engine_gate.h"
#include "orbperix/large_integer.h"
#include "orbperix/providers.h"
#include "provider/provider_common.h"
#include "provider/session_ops.h"
#include "provider/session_provider.h"
#include "provider/session_store.h"

namespace OrbPerix {

// The input kind's store and flag (its SessionKind record is in input_provider.cpp).
struct InputKind {
    static SessionStore& Sessions() noexcept;
    static bool Initialized() noexcept;  // heartbeatRunning
};

// The input kind's class-wide state, in a never-destroyed holder (InputGlobals): heartbeat
// threads, engine threads and providers destroyed late at exit may all still use it.
struct InputState {
    SessionStore sessions;
    std::atomic<bool> heartbeatRunning{false};
    std::atomic<bool> buttonOpened{false};
    // Milliseconds since the time base of the last posted input that counts; 0 = none yet.
    // Stored by posting threads only when it changes, read by the heartbeat.
    std::atomic<uint32_t> lastInputTime{0};
    std::atomic<int64_t> clockStart{0};
    std::atomic<int64_t> clockFrequency{1};
    // The load whose button table the kind calls: the one the newest input provider was
    // created under. One pointer, so a reader never mixes two loads' entries.
    std::atomic<const EngineLoad*> buttonLoad{&engine::NoEngine()};
};
InputState& InputGlobals() noexcept;

// The connection and services operations are SessionProvider's, run for the input kind.
class InputProvider : public SessionProvider<IInputProvider> {
public:
    // Binds to `load`; resets the process-wide input state (button table of `load`,
    // heartbeatRunning and buttonOpened false, lastInputTime 0, time base restarted).
    explicit InputProvider(const EngineLoad& load);
    // Runs DeInit, then stops its heartbeat thread if it still runs (joined, except at process
    // exit where it is let go).
    ~InputProvider() override;
    InputProvider(const InputProvider&) = delete;
    InputProvider& operator=(const InputProvider&) = delete;

    int Init() override;
    void DeInit() override;
    int RegisterPERIXListener(PERIXInfo* deviceInfo, ProviderListener* listener) override;
    // The same, keeping the C interface's listener in the session with `listener`'s entries.
    int RegisterPERIXListener(PERIXInfo* deviceInfo, ProviderListener* listener,
                              const HostRoute& route);
    int OpenButton(ServiceInfo* service, void* reserved) override;
    int CloseButton(ServiceInfo* service, void* reserved1, void* reserved2) override;
    int PostRemoteCtrlEvent(ServiceInfo* service, RemoteCtrlEvent* event) override;
    int ButtonWriteStreamBuffer(ServiceInfo* service, uint8_t* data, uint32_t len) override;

    // PostRemoteCtrlEvent for the C interface, without copying the service's texts: the same
    // checks, encoding, log lines and results, the packet written by this class's own button
    // write. REQUIRES: both views non-null and NUL-terminated at their size (the engine gets
    // them as its button identity, which C strings back everywhere else).
    int PostRemoteCtrlEventTo(std::string_view deviceId, std::string_view serviceId,
                              RemoteCtrlEvent* event);

    // Engine thread: the button channel's notification (registered by RegisterPERIXListener).
    static int ButtonNotify(const void* identity, const void* notify) noexcept;
    // Heartbeat thread: writes the heartbeat packet (11 bytes) to the first session in key
    // order that has an opened button service. Writes nothing once the kind's load is gone.
    static void SendButtonHeart(uint8_t* buffer);

    // Buffer sizes of PostRemoteCtrlEvent and the capacity the encoder is told (8 bits).
    static uint32_t SendBufferSize(uint32_t type) noexcept;
    static unsigned char EncoderCapacity(uint32_t type) noexcept;
    // The encoding and write steps of PostRemoteCtrlEvent after its argument checks.
    template <typename Write>
    int PostEncoded(std::string_view deviceId, RemoteCtrlEvent* event, Write&& write);
    // The button write with the identity given as texts (ButtonWriteStreamBuffer's body).
    static int WriteButton(std::string_view deviceId, std::string_view serviceId, uint8_t* data,
                           uint32_t len);
    // Milliseconds since the time base, truncated to 32 bits.
    static uint32_t NowMilliseconds() noexcept;

    // Shared by a provider and its heartbeat thread, so that the thread never reads a
    // destroyed provider (it may be let go rather than joined).
    struct HeartbeatControl {
        // Ends this one thread (a second Init, the destructor).
        std::atomic<bool> stop{false};
        // Set by Init once heartbeatRunning is set, so that the thread's single check of the
        // flag before its loop sees Init's value.
        std::atomic<bool> released{false};
    };
    // The heartbeat thread's body.
    static void ButtonHeart(std::shared_ptr<HeartbeatControl> control);

private:
    // Stops this provider's own heartbeat thread (not the process-wide flag) and joins it.
    void StopOwnHeartbeat() noexcept;

    std::thread heartbeat_;
    std::shared_ptr<HeartbeatControl> heartbeatControl_;
};

}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_PROVIDER_INPUT_PROVIDER_H_
