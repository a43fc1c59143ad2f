#include "capi/listener_routes.h"

#include <new>
#include <utility>

#include "log/log.h"

namespace OrbPerix {
namespace capi {

namespace {

// The host gets lengths that fit its int32 fields; ids longer than that do not occur.
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

// The entry functions of one kind. Each returns 0: the library ignores listener results.
template <RouteKind K>
struct Trampolines {
    static ListenerRoutes& Routes() noexcept { return ListenerRoutes::Of(K); }

    static int DeviceChange(DeviceChangeInfo* info) {
        CListener target;
        if (info == nullptr ||
            !Routes().Find(info->deviceId, "orbperix_c::on_device_change", &target) ||
            target.callbacks.on_device_change == nullptr) {
            return 0;
        }
        const orbperix_device_change record{info->deviceId.data(),
                                            static_cast<uint32_t>(info->deviceId.size()),
                                            info->word0, info->word1};
        target.callbacks.on_device_change(target.userData, &record);
        return 0;
    }

    static int ServiceChange(ServiceChangeInfo* info) {
        CListener target;
        if (info == nullptr ||
            !Routes().Find(info->deviceId, "orbperix_c::on_service_change", &target) ||
            target.callbacks.on_service_change == nullptr) {
            return 0;
        }
        const orbperix_service_change record{
            info->deviceId.data(),  static_cast<uint32_t>(info->deviceId.size()),
            info->serviceId.data(), static_cast<uint32_t>(info->serviceId.size()),
            info->word0,            info->word1,
            info->word2};
        target.callbacks.on_service_change(target.userData, &record);
        return 0;
    }

    static int Data(std::string deviceId, BinaryData* data) {
        CListener target;
        if (data == nullptr || !Routes().Find(deviceId, "orbperix_c::on_data", &target) ||
            target.callbacks.on_data == nullptr) {
            return 0;
        }
        const orbperix_binary record{data->word0, data->word1, data->data, data->len};
        target.callbacks.on_data(target.userData, deviceId.data(),
                                 static_cast<uint32_t>(deviceId.size()), &record);
        return 0;
    }

    static int Audio(ServiceInfo* service, AudioData* data) {
        CListener target;
        if (service == nullptr || data == nullptr ||
            !Routes().Find(service->deviceId, "orbperix_c::on_audio", &target) ||
            target.callbacks.on_audio == nullptr) {
            return 0;
        }
        const orbperix_service view = ServiceView(service);
        const orbperix_stream_data record{data->a, data->b, 0, data->data, data->dataLen};
        target.callbacks.on_audio(target.userData, &view, &record);
        return 0;
    }

    static int Button(ServiceInfo* service, ButtonNotifyInfo* info) {
        CListener target;
        if (service == nullptr || info == nullptr ||
            !Routes().Find(service->deviceId, "orbperix_c::on_button", &target) ||
            target.callbacks.on_button == nullptr) {
            return 0;
        }
        const orbperix_service view = ServiceView(service);
        const orbperix_button_notify record{info->word0, info->word1, info->dataExtend,
                                            info->dataLen};
        target.callbacks.on_button(target.userData, &view, &record);
        return 0;
    }

    static int Refresh(ServiceInfo* service, PartialRefreshData* data) {
        CListener target;
        if (service == nullptr || data == nullptr ||
            !Routes().Find(service->deviceId, "orbperix_c::on_partial_refresh", &target) ||
            target.callbacks.on_partial_refresh == nullptr) {
            return 0;
        }
        const orbperix_service view = ServiceView(service);
        const orbperix_stream_data record{data->a, data->b, data->reserved, data->data,
                                          data->dataLen};
        target.callbacks.on_partial_refresh(target.userData, &view, &record);
        return 0;
    }

    static ProviderListener Make(const orbperix_listener& c) noexcept {
        ProviderListener listener{};
        listener.onDeviceChange = c.on_device_change != nullptr ? &DeviceChange : nullptr;
        listener.onServiceChange = c.on_service_change != nullptr ? &ServiceChange : nullptr;
        listener.onDataReceive = c.on_data != nullptr ? &Data : nullptr;
        listener.onAudioData = c.on_audio != nullptr ? &Audio : nullptr;
        listener.onButtonNotify = c.on_button != nullptr ? &Button : nullptr;
        listener.onPartialRefreshData = c.on_partial_refresh != nullptr ? &Refresh : nullptr;
        return listener;
    }
};

}  // namespace

ListenerRoutes& ListenerRoutes::Of(RouteKind kind) noexcept {
    // Deliberately leaked: engine threads may deliver while static objects die at exit.
    static ListenerRoutes* input = new ListenerRoutes(RouteKind::kInput);
    static ListenerRoutes* source = new ListenerRoutes(RouteKind::kSource);
    return kind == RouteKind::kInput ? *input : *source;
}

ProviderListener ListenerRoutes::MakeListener(const orbperix_listener& c) const noexcept {
    return kind_ == RouteKind::kInput ? Trampolines<RouteKind::kInput>::Make(c)
                                      : Trampolines<RouteKind::kSource>::Make(c);
}

bool ListenerRoutes::Exchange(const std::string& deviceId, const CListener& listener,
                              CListener* previous) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = routes_.find(deviceId);
    if (found == routes_.end()) {
        *previous = CListener{};
        try {
            routes_.emplace(deviceId, listener);
        } catch (...) {
            return false;
        }
        return true;
    }
    *previous = found->second;
    found->second = listener;
    return true;
}

void ListenerRoutes::Restore(const std::string& deviceId, const CListener& previous) noexcept {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = routes_.find(deviceId);
    if (found == routes_.end()) {
        return;
    }
    if (previous.present) {
        found->second = previous;
    } else {
        routes_.erase(found);
    }
}

void ListenerRoutes::Forget(const std::string& deviceId) noexcept {
    std::lock_guard<std::mutex> lock(mutex_);
    routes_.erase(deviceId);
}

void ListenerRoutes::ForgetAll() noexcept {
    std::map<std::string, CListener, std::less<>> gone;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        gone.swap(routes_);
    }
}

bool ListenerRoutes::Find(const std::string& deviceId, const char* scope,
                          CListener* out) const noexcept {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto found = routes_.find(deviceId);
        if (found != routes_.end()) {
            *out = found->second;
            return true;
        }
    }
    log::Trace(LOG_MESSAGE_ERROR, scope, "no C listener for device ", deviceId);
    return false;
}

}  // namespace capi
}  // namespace OrbPerix
