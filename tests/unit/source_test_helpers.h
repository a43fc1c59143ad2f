// Shared pieces of the source provider tests: recording audio and partial-refresh listeners
// and a fixture that creates a source provider through the manager.
#ifndef ORBPERIX_TESTS_UNIT_SOURCE_TEST_HELPERS_H_
#define ORBPERIX_TESTS_UNIT_SOURCE_TEST_HELPERS_H_

#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine_fixture.h"
#include "input_test_helpers.h"
#include "perix_sim_streams.h"

namespace source_test {

using input_test::MakeInfo;

inline std::string Line(const std::string& message, const std::string& operation) {
    return input_test::Line(message, operation, "SourceProvider");
}

inline std::vector<LogLine> OneLineOf(const std::string& errorLine) {
    return std::vector<LogLine>{LogLine{4, errorLine}};
}

// One delivery as the host's listener saw it. The bytes are copied during the call; the
// pointer is kept only to compare it with the engine's buffer.
struct Delivery {
    std::string deviceId;
    std::string serviceId;
    uint32_t serviceType = 0;
    uint32_t a = 0, b = 0, reserved = 0, dataLen = 0;
    const uint8_t* pointer = nullptr;
    std::vector<uint8_t> bytes;
};

struct StreamSeen {
    std::mutex mutex;
    std::vector<Delivery> audio;
    std::vector<Delivery> refresh;
    void Reset() {
        std::lock_guard<std::mutex> lock(mutex);
        audio.clear();
        refresh.clear();
    }
    std::vector<Delivery> Audio() {
        std::lock_guard<std::mutex> lock(mutex);
        return audio;
    }
    std::vector<Delivery> Refresh() {
        std::lock_guard<std::mutex> lock(mutex);
        return refresh;
    }
};
inline StreamSeen& streams() {
    static StreamSeen s;
    return s;
}

inline int OnAudio(ServiceInfo* service, AudioData* data) {
    Delivery d{service->deviceId, service->serviceId, service->serviceType, data->a, data->b, 0,
               data->dataLen, data->data, {}};
    if (data->data != nullptr) {
        d.bytes.assign(data->data, data->data + data->dataLen);
    }
    std::lock_guard<std::mutex> lock(streams().mutex);
    streams().audio.push_back(d);
    return 0;
}

inline int OnRefresh(ServiceInfo* service, PartialRefreshData* data) {
    Delivery d{service->deviceId, service->serviceId, service->serviceType, data->a, data->b,
               data->reserved, data->dataLen, data->data, {}};
    if (data->data != nullptr) {
        d.bytes.assign(data->data, data->data + data->dataLen);
    }
    std::lock_guard<std::mutex> lock(streams().mutex);
    streams().refresh.push_back(d);
    return 0;
}

inline ProviderListener StreamListener() {
    ProviderListener listener{};
    listener.onAudioData = &OnAudio;
    listener.onPartialRefreshData = &OnRefresh;
    return listener;
}

// An engine service identity over caller-owned texts (`service` a literal or a string that
// outlives the record).
inline PerixServiceId EngineId(const std::string& device, const char* service, uint32_t type) {
    return PerixServiceId{device.data(), static_cast<uint32_t>(device.size()), service,
                          static_cast<uint32_t>(std::strlen(service)), type};
}

class SourceTest : public EngineTest {
protected:
    void SetUp() override {
        EngineTest::SetUp();
        streams().Reset();
        InitializeManager();
        source = manager().CreateSourceProvider();
        ASSERT_NE(nullptr, source);
        perix_sim_clear_calls();
        ClearLogs();
    }
    void TearDown() override {
        perix_sim_streams_reset();
        if (source != nullptr) {
            source->DeInit();
            manager().DestorySourceProvider(source);
            source.reset();
        }
        EngineTest::TearDown();
    }
    // Init, register with the stream listener, connect; forgets the calls and lines.
    void ConnectPeer(PERIXInfo& info) {
        listener = StreamListener();
        ASSERT_EQ(0, source->Init());
        ASSERT_EQ(0, source->RegisterPERIXListener(&info, &listener));
        ASSERT_EQ(0, source->ConnectDevice(&info));
        perix_sim_clear_calls();
        ClearLogs();
    }

    std::shared_ptr<OrbPerix::ISourceProvider> source;
    ProviderListener listener{};
};

}  // namespace source_test

#endif  // ORBPERIX_TESTS_UNIT_SOURCE_TEST_HELPERS_H_
