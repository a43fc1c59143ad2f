// Shared pieces of the provider tests: device records, recording host listeners, and a fixture
// that creates an input provider through the manager against the simulated engine and peer.
#ifndef ORBPERIX_TESTS_UNIT_INPUT_TEST_HELPERS_H_
#define ORBPERIX_TESTS_UNIT_INPUT_TEST_HELPERS_H_

#include <chrono>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "sample_events.h"
#include "engine_fixture.h"
#include "perix_sim_peer.h"

namespace input_test {

// A valid device record for `peer` with a recognisable session key.
inline PERIXInfo MakeInfo(const std::string& peer, int32_t serverPort = 7000,
                          uint32_t connectType = 1) {
    PERIXInfo info;
    std::memset(&info, 0, sizeof(info));
    std::strncpy(info.localDeviceId, "local-device", sizeof(info.localDeviceId) - 1);
    std::strncpy(info.peerDeviceId, peer.c_str(), sizeof(info.peerDeviceId) - 1);
    info.serverPort = serverPort;
    info.connectType = connectType;
    for (size_t i = 0; i < sizeof(info.sessionKey); ++i) {
        info.sessionKey[i] = static_cast<uint8_t>(i + 1);
    }
    return info;
}

inline std::string Line(const std::string& message, const std::string& operation,
                        const std::string& cls = "InputProvider") {
    return message + "(OrbPerix::" + cls + "::" + operation + ")";
}

// What the recording listeners saw. Listener functions are plain functions, so the record is
// process-wide; Reset() before each test.
struct Seen {
    std::mutex mutex;
    std::vector<DeviceChangeInfo> devices;
    std::vector<ServiceChangeInfo> services;
    struct Data {
        std::string deviceId;
        uint32_t word0, word1, len;
        const uint8_t* pointer;
        std::vector<uint8_t> bytes;
    };
    std::vector<Data> data;
    struct Button {
        ServiceInfo service;
        uint32_t word0, word1, dataLen;
        const uint8_t* pointer;
        std::vector<uint8_t> bytes;
    };
    std::vector<Button> buttons;

    void Reset() {
        std::lock_guard<std::mutex> lock(mutex);
        devices.clear();
        services.clear();
        data.clear();
        buttons.clear();
    }
};
inline Seen& seen() {
    static Seen s;
    return s;
}

inline int OnDevice(DeviceChangeInfo* info) {
    std::lock_guard<std::mutex> lock(seen().mutex);
    seen().devices.push_back(*info);
    return 0;
}
inline int OnService(ServiceChangeInfo* info) {
    std::lock_guard<std::mutex> lock(seen().mutex);
    seen().services.push_back(*info);
    return 0;
}
inline int OnData(std::string deviceId, BinaryData* data) {
    std::lock_guard<std::mutex> lock(seen().mutex);
    seen().data.push_back({deviceId, data->word0, data->word1, data->len, data->data,
                           std::vector<uint8_t>(data->data, data->data + data->len)});
    return 0;
}
inline int OnButton(ServiceInfo* service, ButtonNotifyInfo* info) {
    std::lock_guard<std::mutex> lock(seen().mutex);
    seen().buttons.push_back(
        {*service, info->word0, info->word1, info->dataLen, info->dataExtend,
         info->dataExtend != nullptr
             ? std::vector<uint8_t>(info->dataExtend, info->dataExtend + info->dataLen)
             : std::vector<uint8_t>()});
    return 0;
}

inline ProviderListener AllListeners() {
    ProviderListener listener{};
    listener.onDeviceChange = &OnDevice;
    listener.onServiceChange = &OnService;
    listener.onDataReceive = &OnData;
    listener.onButtonNotify = &OnButton;
    return listener;
}

inline ServiceInfo ButtonService(const std::string& peer, const std::string& service = "btn-1") {
    return ServiceInfo{peer, service, 6};
}

// Waits up to `timeout` for `done()`; returns its last value.
template <typename Done>
bool WaitFor(Done done, std::chrono::milliseconds timeout = std::chrono::milliseconds(3000)) {
    const auto until = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (std::chrono::steady_clock::now() > until) {
            return done();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

// An initialised manager and one input provider created through it, with empty logs and calls.
class InputTest : public EngineTest {
protected:
    void SetUp() override {
        EngineTest::SetUp();
        seen().Reset();
        InitializeManager();
        provider = manager().CreateInputProvider();
        ASSERT_NE(nullptr, provider);
        listener = AllListeners();
        perix_sim_clear_calls();
        ClearLogs();
    }
    void TearDown() override {
        perix_sim_peer_flush();
        if (provider) {
            provider->DeInit();
            manager().DestoryInputProvider(provider);
            provider.reset();
        }
        EngineTest::TearDown();
    }

    // Init (once), register and connect `peer`; asserts each step.
    void Connect(const std::string& peer) {
        if (!initialised) {
            ASSERT_EQ(0, provider->Init());
            initialised = true;
        }
        PERIXInfo info = MakeInfo(peer);
        ASSERT_EQ(0, provider->RegisterPERIXListener(&info, &listener));
        ASSERT_EQ(0, provider->ConnectDevice(&info));
    }
    // Connect, open the button channel with the peer reporting it open, and wait for that.
    void ConnectAndOpen(const std::string& peer) {
        Connect(peer);
        perix_sim_set_auto_open(1);
        ServiceInfo service = ButtonService(peer);
        ASSERT_EQ(0, provider->OpenButton(&service, nullptr));
        perix_sim_peer_flush();
        // An input posted within the first millisecond after the provider's creation has the
        // time 0, which means "no input yet"; tests that count on input wait past it.
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
    }

    std::shared_ptr<OrbPerix::IInputProvider> provider;
    ProviderListener listener{};
    bool initialised = false;
};

using sample_events::Event;

}  // namespace input_test

#endif  // ORBPERIX_TESTS_UNIT_INPUT_TEST_HELPERS_H_
