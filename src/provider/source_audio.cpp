// The source provider's audio channel: open, close, the per-buffer write path, pass-through
// and the engine's audio deliveries.
#include "engine/engine_gate.h"
#include "log/log.h"
#include "provider/source_provider.h"
#include "provider/source_stream.h"
#include "util/result.h"

namespace OrbPerix {

namespace {

// The engine's identity of a host service; points into the host's strings (no copy).
PerixServiceId AudioServiceId(const ServiceInfo& service, uint32_t engineType) noexcept {
    return PerixServiceId{service.deviceId.data(),
                          static_cast<uint32_t>(service.deviceId.size()),
                          service.serviceId.data(),
                          static_cast<uint32_t>(service.serviceId.size()), engineType};
}

// The engine's type for the audio stream buffers, whatever the host's service says.
constexpr uint32_t kAudioStreamEngineType = 3;

struct AudioChannel {
    using Record = AudioData;
    static constexpr auto kListener = &ProviderListener::onAudioData;
    static constexpr const char* kScope = "OrbPerix::SourceProvider::AudioNotify";
    static constexpr const char* kEvent = "On AudioNotify";
    static constexpr capture::PayloadKind kPayloadKind = capture::PayloadKind::kAudio;
    static constexpr const char* kNoListener = "On AudioNotify, Listen function is null";
    static constexpr const char* kNewFailed = "On AudioNotify, new dataExtend failed: , dataLen: ";
    static constexpr const char* kCopyFailed = "AudioNotify, copy data failed: ";
    static uint32_t HostServiceType(uint32_t engineType) noexcept {
        return ConvertAudioDeviceType(engineType);
    }
    static void Fill(AudioData& record, uint32_t a, uint32_t b, uint32_t length,
                     uint8_t* data) noexcept {
        record.a = a;
        record.b = b;
        record.dataLen = length;
        record.data = data;
    }
};

}  // namespace

int SourceProvider::OpenAudio(ServiceInfo* service, AudioParam* audioParam) {
    static const char* const kScope = "OrbPerix::SourceProvider::OpenAudio";
    if (service == nullptr || audioParam == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "OpenAudio param is invalid");
        return kInvalidArgument;
    }
    const PerixServiceId id = AudioServiceId(*service, ConvertAudioServiceType(service->serviceType));
    const AudioParam param = *audioParam;
    const int r = engine::Call(load_, load_.audio.AudioOpen, &id, &param);
    if (r != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "OpenAudio failed with ret=", r);
        return r;
    }
    return 0;
}

int SourceProvider::CloseAudio(ServiceInfo* service) {
    static const char* const kScope = "OrbPerix::SourceProvider::CloseAudio";
    if (service == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "CloseAudio service is null");
        return kInvalidArgument;
    }
    const PerixServiceId id = AudioServiceId(*service, ConvertAudioServiceType(service->serviceType));
    const int r = engine::Call(load_, load_.audio.AudioClose, &id);
    if (r != 0) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "CloseAudio failed with ret=", r);
        return r;
    }
    return 0;
}

void SourceProvider::AudioWriteStreamBuffer(ServiceInfo* service, uint8_t* data,
                                            uint32_t length) {
    if (service == nullptr) {
        return;
    }
    const PerixServiceId id = AudioServiceId(*service, kAudioStreamEngineType);
    const PerixAudioBuffer buffer{data, length, 3, 0, 1, 0};
    // The engine's verdict on a single buffer is not reported: this is the streaming path.
    engine::Call(load_, load_.audio.AudioWriteStreamBuffer, &id, &buffer);
}

int SourceProvider::AudioPassThrough(void* a, void* b) {
    return engine::Call(load_, load_.audio.AudioPassThrough, a, b);
}

int SourceProvider::AudioNotify(const void* serviceId, const void* audioData) noexcept {
    return DeliverStream<AudioChannel>(serviceId, audioData);
}

}  // namespace OrbPerix
