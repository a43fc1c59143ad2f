#include "capture/traced_call.h"

#include <cstring>

#include "engine/engine_gate.h"

namespace OrbPerix {
namespace capture {

Operation IdentifyOperation(const EngineLoad& load, void (*entry)(void)) noexcept {
    // The data-carrying writes first: they are most of the records, and their payload kind
    // goes with them (button writes of a post are told apart by the caller's PostScope).
    if (entry == reinterpret_cast<void (*)(void)>(load.button.ButtonWriteStreamBuffer)) {
        return Operation{"Button.ButtonWriteStreamBuffer", PostTime() != 0
                                                               ? PayloadKind::kRemoteControl
                                                               : PayloadKind::kButtonData};
    }
    if (entry == reinterpret_cast<void (*)(void)>(load.audio.AudioWriteStreamBuffer)) {
        return Operation{"Audio.AudioWriteStreamBuffer", PayloadKind::kAudio};
    }
    if (entry == reinterpret_cast<void (*)(void)>(load.refresh.PartialRefreshWriteStreamBuffer)) {
        return Operation{"Refresh.PartialRefreshWriteStreamBuffer", PayloadKind::kRefresh};
    }
    if (entry == reinterpret_cast<void (*)(void)>(load.main.PERIXSendBinaryData)) {
        return Operation{"Main.PERIXSendBinaryData", PayloadKind::kBinary};
    }
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
    return Operation{name, PayloadKind::kNone};
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
