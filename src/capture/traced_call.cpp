#include "capture/traced_call.h"

#include <cstring>

#include "engine/engine_gate.h"

namespace OrbPerix {
namespace capture {
namespace {

// The kind of bytes an operation's data buffer holds; button writes of a post are told apart
// by the caller's PostScope.
PayloadKind DataKindOf(const char* name) noexcept {
    if (std::strcmp(name, "Button.ButtonWriteStreamBuffer") == 0) {
        return PostTime() != 0 ? PayloadKind::kRemoteControl : PayloadKind::kButtonData;
    }
    if (std::strcmp(name, "Audio.AudioWriteStreamBuffer") == 0) {
        return PayloadKind::kAudio;
    }
    if (std::strcmp(name, "Refresh.PartialRefreshWriteStreamBuffer") == 0) {
        return PayloadKind::kRefresh;
    }
    if (std::strcmp(name, "Main.PERIXSendBinaryData") == 0) {
        return PayloadKind::kBinary;
    }
    return PayloadKind::kNone;
}

}  // namespace

Operation IdentifyOperation(const EngineLoad& load, void (*entry)(void)) noexcept {
    const char* name = "Engine.unknown";
    // First match in table order; an engine that fills two slots with one function is named
    // by the first.
#define ORBPERIX_CAPTURE_MAIN(slot, slotName, result, params) \
    if (reinterpret_cast<void (*)(void)>(load.main.slotName) == entry) return "Main." #slotName;
#define ORBPERIX_CAPTURE_BUTTON(slot, slotName, result, params) \
    if (reinterpret_cast<void (*)(void)>(load.button.slotName) == entry) return "Button." #slotName;
#define ORBPERIX_CAPTURE_AUDIO(slot, slotName, result, params) \
    if (reinterpret_cast<void (*)(void)>(load.audio.slotName) == entry) return "Audio." #slotName;
#define ORBPERIX_CAPTURE_REFRESH(slot, slotName, result, params)                  \
    if (reinterpret_cast<void (*)(void)>(load.refresh.slotName) == entry) \
        return "Refresh." #slotName;
    const char* found = [&]() -> const char* {
        ORBPERIX_MAIN_SLOTS(ORBPERIX_CAPTURE_MAIN)
        ORBPERIX_BUTTON_SLOTS(ORBPERIX_CAPTURE_BUTTON)
        ORBPERIX_AUDIO_SLOTS(ORBPERIX_CAPTURE_AUDIO)
        ORBPERIX_REFRESH_SLOTS(ORBPERIX_CAPTURE_REFRESH)
        return nullptr;
    }();
#undef ORBPERIX_CAPTURE_MAIN
#undef ORBPERIX_CAPTURE_BUTTON
#undef ORBPERIX_CAPTURE_AUDIO
#undef ORBPERIX_CAPTURE_REFRESH
    if (found != nullptr) {
        name = found;
    }
    return Operation{name, DataKindOf(name)};
}

void Describe(Record& record, const PERIXInfo* info) noexcept {
    if (info == nullptr) {
        return;
    }
    const size_t length = strnlen(info->peerDeviceId, sizeof(info->peerDeviceId));
    record.Device(info->peerDeviceId, static_cast<uint32_t>(length));
    record.Aux(static_cast<uint32_t>(info->serverPort));
}

void Describe(Record& record, const PerixButtonIdentity* identity) noexcept {
    if (identity != nullptr) {
        record.Device(identity->deviceId, identity->deviceIdLen);
        record.Service(identity->serviceId, identity->serviceIdLen);
    }
}

void Describe(Record& record, const PerixServiceId* service) noexcept {
    if (service != nullptr) {
        record.Device(service->deviceId, service->deviceIdLen);
        record.Service(service->serviceId, service->serviceIdLen);
        record.Aux(service->serviceType);
    }
}

void Describe(Record& record, const PerixDataBuffer* buffer) noexcept {
    if (buffer != nullptr) {
        record.Payload(buffer->data, buffer->len);
    }
}

void Describe(Record& record, const PerixAudioBuffer* buffer) noexcept {
    if (buffer != nullptr) {
        record.Payload(buffer->data, buffer->length);
    }
}

void Describe(Record& record, const BinaryData* data) noexcept {
    if (data != nullptr) {
        record.Payload(data->data, data->len);
    }
}

void Describe(Record& record, const PerixVirtualService* service) noexcept {
    if (service != nullptr) {
        record.Service(service->serviceId, service->serviceIdLen);
        record.Aux(service->serviceType);
    }
}

}  // namespace capture
}  // namespace OrbPerix
