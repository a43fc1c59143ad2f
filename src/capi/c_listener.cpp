#include "capi/c_listener.h"

#include <string>

#include "provider/delivery.h"

namespace OrbPerix {
namespace capi {

namespace {

// The host gets lengths that fit its int32 fields; the library caps engine texts far below.
int32_t Length32(size_t size) noexcept { return static_cast<int32_t>(size); }

orbperix_service ServiceView(const ServiceInfo* service) noexcept {
    orbperix_service view{};
    if (service != nullptr) {
        view.device_id = service->deviceId.data();
        view.device_id_len = Length32(service->deviceId.size());
        view.service_id = service->serviceId.data();
        view.service_id_len = Length32(service->serviceId.size());
        view.service_type = service->serviceType;
    }
    return view;
}

// The C listener of the session being delivered on this thread.
const orbperix_listener* Route(void** userData) noexcept {
    const HostRoute* route = CurrentRoute();
    if (route == nullptr) {
        return nullptr;
    }
    *userData = route->userData;
    return &route->callbacks;
}

// Each entry returns 0: the library ignores listener results.
int DeviceChange(DeviceChangeInfo* info) {
    void* user = nullptr;
    const orbperix_listener* c = Route(&user);
    if (info == nullptr || c == nullptr || c->on_device_change == nullptr) {
        return 0;
    }
    const orbperix_device_change record{info->deviceId.data(),
                                        static_cast<uint32_t>(info->deviceId.size()), info->word0,
                                        info->word1};
    c->on_device_change(user, &record);
    return 0;
}

int ServiceChange(ServiceChangeInfo* info) {
    void* user = nullptr;
    const orbperix_listener* c = Route(&user);
    if (info == nullptr || c == nullptr || c->on_service_change == nullptr) {
        return 0;
    }
    const orbperix_service_change record{
        info->deviceId.data(),  static_cast<uint32_t>(info->deviceId.size()),
        info->serviceId.data(), static_cast<uint32_t>(info->serviceId.size()),
        info->word0,            info->word1,
        info->word2};
    c->on_service_change(user, &record);
    return 0;
}

int Data(std::string deviceId, BinaryData* data) {
    void* user = nullptr;
    const orbperix_listener* c = Route(&user);
    if (data == nullptr || c == nullptr || c->on_data == nullptr) {
        return 0;
    }
    const orbperix_binary record{data->word0, data->word1, data->data, data->len};
    c->on_data(user, deviceId.data(), static_cast<uint32_t>(deviceId.size()), &record);
    return 0;
}

int Audio(ServiceInfo* service, AudioData* data) {
    void* user = nullptr;
    const orbperix_listener* c = Route(&user);
    if (service == nullptr || data == nullptr || c == nullptr || c->on_audio == nullptr) {
        return 0;
    }
    const orbperix_service view = ServiceView(service);
    const orbperix_stream_data record{data->a, data->b, 0, data->data, data->dataLen};
    c->on_audio(user, &view, &record);
    return 0;
}

int Button(ServiceInfo* service, ButtonNotifyInfo* info) {
    void* user = nullptr;
    const orbperix_listener* c = Route(&user);
    if (service == nullptr || info == nullptr || c == nullptr || c->on_button == nullptr) {
        return 0;
    }
    const orbperix_service view = ServiceView(service);
    const orbperix_button_notify record{info->word0, info->word1, info->dataExtend, info->dataLen};
    c->on_button(user, &view, &record);
    return 0;
}

int Refresh(ServiceInfo* service, PartialRefreshData* data) {
    void* user = nullptr;
    const orbperix_listener* c = Route(&user);
    if (service == nullptr || data == nullptr || c == nullptr || c->on_partial_refresh == nullptr) {
        return 0;
    }
    const orbperix_service view = ServiceView(service);
    const orbperix_stream_data record{data->a, data->b, data->reserved, data->data,
                                      data->dataLen};
    c->on_partial_refresh(user, &view, &record);
    return 0;
}

}  // namespace

ProviderListener MakeListener(const orbperix_listener& c) noexcept {
    ProviderListener listener{};
    listener.onDeviceChange = c.on_device_change != nullptr ? &DeviceChange : nullptr;
    listener.onServiceChange = c.on_service_change != nullptr ? &ServiceChange : nullptr;
    listener.onDataReceive = c.on_data != nullptr ? &Data : nullptr;
    listener.onAudioData = c.on_audio != nullptr ? &Audio : nullptr;
    listener.onButtonNotify = c.on_button != nullptr ? &Button : nullptr;
    listener.onPartialRefreshData = c.on_partial_refresh != nullptr ? &Refresh : nullptr;
    return listener;
}

}  // namespace capi
}  // namespace OrbPerix
