// InputProvider: sends input to peer devices through the PERIX engine: the button channel with
// its heartbeat, remote-control packets, binary data and virtual services.
//
// Process-wide state (one copy for all input providers, see InputState): the session store,
// the heartbeat and button-opened flags, the last input time, the time base and the button
// handler table. Creating an input provider resets all of it except the sessions.
//
// Threads: host threads call the virtual operations; engine threads call the OnDevice*/
// OnDataReceive forwarders and ButtonNotify; one heartbeat thread per initialised provider
// runs ButtonHeart. Flags and the last input time are relaxed atomics; the session store has a
// lock of its own that is never held while the engine or a host listener runs.
// REQUIRES: the host does not call Init, DeInit or the destructor of one provider from several
// threads at once.
#ifndef ORBPERIX_SRC_PROVIDER_INPUT_PROVIDER_H_
#define ORBPERIX_SRC_PROVIDER_INPUT_PROVIDER_H_

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

#include "orbperix/engine_tables.h"
#include "orbperix/large_integer.h"
#include "orbperix/providers.h"
#include "provider/base_provider.h"
#include "provider/session_ops.h"
#include "provider/session_store.h"

namespace OrbPerix {

// The input kind for SessionOps.
struct InputKind {
    static constexpr char kScopePrefix[] = "OrbPerix::InputProvider::";
    static constexpr char kInitializeFirst[] = "Please initialize InputProvider first";
    static SessionStore& Sessions() noexcept;
    static bool Initialized() noexcept;  // heartbeatRunning
};

// The input kind's class-wide state. Every member is trivially destructible, so the state
// stays valid while providers are destroyed at process exit (the session store is never
// destroyed for the same reason).
struct InputState {
    std::atomic<bool> heartbeatRunning{false};
    std::atomic<bool> buttonOpened{false};
    // Milliseconds since the time base of the last posted input that counts; 0 = none yet.
    std::atomic<uint32_t> lastInputTime{0};
    std::atomic<int64_t> clockStart{0};
    std::atomic<int64_t> clockFrequency{1};
    // The engine's button handler table, entry by entry, so that a provider's creation can
    // replace it while a heartbeat thread reads it.
    std::atomic<decltype(ButtonHandlerSource::RegisterCallback)> registerCallback{nullptr};
    std::atomic<decltype(ButtonHandlerSource::ButtonOpen)> buttonOpen{nullptr};
    std::atomic<decltype(ButtonHandlerSource::ButtonClose)> buttonClose{nullptr};
    std::atomic<decltype(ButtonHandlerSource::ButtonWriteStreamBuffer)> buttonWrite{nullptr};
};
InputState& InputGlobals() noexcept;

class InputProvider : public IInputProvider, public BaseProvider {
public:
    // Copies the main table; resets the process-wide input state (button table copied,
    // heartbeatRunning and buttonOpened false, lastInputTime 0, time base restarted).
    InputProvider(const OrbPERIXHandler& handler, const ButtonHandlerSource& button);
    // Runs DeInit, then stops and joins a heartbeat thread that is still joinable.
    ~InputProvider() override;
    InputProvider(const InputProvider&) = delete;
    InputProvider& operator=(const InputProvider&) = delete;

    int Init() override;
    void DeInit() override;
    int ConnectDevice(PERIXInfo* deviceInfo) override;
    int DisconnectDevice(PERIXInfo* deviceInfo) override;
    int RegisterPERIXListener(PERIXInfo* deviceInfo, ProviderListener* listener) override;
    int UnRegisterListener(PERIXInfo* deviceInfo) override;
    int RegisterDataListener(const std::string* deviceId, uint32_t type, void* callback) override;
    int UnRegisterDataListener(const std::string* deviceId, uint32_t type) override;
    int SendData(const std::string* deviceId, BinaryData* data) override;
    int SendDataNoResult(const std::string* deviceId, BinaryData* data) override;
    int StartDeviceService(ServiceInfo* service, void* reserved) override;
    int StopDeviceService(ServiceInfo* service) override;
    void RegisterEventCallback(std::string deviceId, uint32_t type, void* callback) override;
    int OpenButton(ServiceInfo* service, void* reserved) override;
    int CloseButton(ServiceInfo* service, void* reserved1, void* reserved2) override;
    int PostRemoteCtrlEvent(ServiceInfo* service, RemoteCtrlEvent* event) override;
    void SendBinaryData(const std::string* deviceId, BinaryData* data) override;
    int ButtonWriteStreamBuffer(ServiceInfo* service, uint8_t* data, uint32_t len) override;
    int SendByHandler(void* a, void* b, void* c) override;

    // Engine thread: the button channel's notification (registered by RegisterPERIXListener).
    static int ButtonNotify(const void* identity, const void* notify);
    // Heartbeat thread: writes the heartbeat packet (11 bytes) to the first session in key
    // order that has an opened button service.
    static void SendButtonHeart(uint8_t* buffer);

    // Buffer sizes of PostRemoteCtrlEvent and the capacity the encoder is told (8 bits).
    static uint32_t SendBufferSize(uint32_t type) noexcept;
    static unsigned char EncoderCapacity(uint32_t type) noexcept;
    // Milliseconds since the time base, truncated to 32 bits.
    static uint32_t NowMilliseconds() noexcept;

private:
    // The heartbeat thread body. `stop` ends this one thread (a second Init or the destructor);
    // `released` is set by Init once heartbeatRunning is set, so that the single check of the
    // flag before the loop sees Init's value.
    static void ButtonHeart(const std::atomic<bool>* stop, const std::atomic<bool>* released);
    // Stops this provider's own heartbeat thread (not the process-wide flag) and joins it.
    void StopOwnHeartbeat() noexcept;

    SessionOps<InputKind> ops_;
    PerixButtonCallback buttonCallback_{};  // handed to the button RegisterCallback by address
    std::thread heartbeat_;
    std::atomic<bool> stopHeartbeat_{false};
    std::atomic<bool> heartbeatReleased_{false};
};

}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_PROVIDER_INPUT_PROVIDER_H_
