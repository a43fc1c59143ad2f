// The C interface of the input and source providers. The operations the two kinds share are
// written once as templates over the provider interface; each C function is a one-line
// instance. A C listener is registered into the session itself (see c_listener.h).
#include <cstddef>
#include <cstring>
#include <mutex>
#include <string>

#include "capi/c_listener.h"
#include "capi/capi_common.h"
#include "platform/platform.h"
#include "provider/input_provider.h"
#include "provider/source_provider.h"
#include "wire/event_kind.h"

namespace OrbPerix {
namespace capi {
namespace {

// The concrete provider behind an interface: every provider a C host holds was created by the
// library's manager.
template <typename T>
struct ConcreteOf;
template <>
struct ConcreteOf<IInputProvider> {
    using type = InputProvider;
};
template <>
struct ConcreteOf<ISourceProvider> {
    using type = SourceProvider;
};

// The bytes of a C event record that its kind's encoding reads (the header and the kind's payload
// member) copied into `to`; kinds without a member of their own (and unknown kinds) copy the
// whole record. Each kind copies a size known here, so the copy is a few plain moves rather
// than a block copy of a size chosen at run time.
template <size_t kPayload>
void CopyHead(const orbperix_remote_event& from, RemoteCtrlEvent* to) noexcept {
    constexpr size_t kBytes = offsetof(RemoteCtrlEvent, payload) + kPayload;
    static_assert(kBytes <= sizeof(RemoteCtrlEvent), "a kind's bytes lie inside the record");
    std::memcpy(to, &from, kBytes);  // same layout, checked in capi_layout.cpp
}

void CopyEvent(const orbperix_remote_event& from, RemoteCtrlEvent* to) noexcept {
    switch (from.type) {
        case event_kind::kTouch: return CopyHead<sizeof(RemoteTouchEvent)>(from, to);
        case event_kind::kKey: return CopyHead<sizeof(RemoteKeyEvent)>(from, to);
        case event_kind::kZoom: return CopyHead<sizeof(RemoteZoomEvent)>(from, to);
        case event_kind::kScroll: return CopyHead<sizeof(RemoteScrollEvent)>(from, to);
        case event_kind::kMouse: return CopyHead<sizeof(RemoteMouseEvent)>(from, to);
        case event_kind::kWheel: return CopyHead<sizeof(RemoteWheelEvent)>(from, to);
        case event_kind::kVirtualKey: return CopyHead<sizeof(RemoteVirtualKeyEvent)>(from, to);
        case event_kind::kMessage: return CopyHead<sizeof(RemoteMessageEvent)>(from, to);
        default: return CopyHead<sizeof(RemoteCtrlPayload)>(from, to);
    }
}

template <typename T>
int Init(uint64_t h, const char* scope) {
    return WithObject<T>(h, scope, [](T& p) { return p.Init(); });
}

template <typename T>
int DeInit(uint64_t h, const char* scope) {
    return WithObject<T>(h, scope, [](T& p) {
        p.DeInit();
        return 0;
    });
}

template <typename T>
int Connect(uint64_t h, const char* scope, const orbperix_device_info* device) {
    return WithObject<T>(h, scope, [device](T& p) {
        PERIXInfo info;
        return p.ConnectDevice(DeviceInfoOf(device, &info));
    });
}

template <typename T>
int Disconnect(uint64_t h, const char* scope, const orbperix_device_info* device) {
    return WithObject<T>(h, scope, [device](T& p) {
        PERIXInfo info;
        return p.DisconnectDevice(DeviceInfoOf(device, &info));
    });
}

template <typename T>
int RegisterListener(uint64_t h, const char* scope, const orbperix_device_info* device,
                     const orbperix_listener* listener, void* userData) {
    return WithObject<T>(h, scope, [=](T& p) {
        PERIXInfo info;
        PERIXInfo* record = DeviceInfoOf(device, &info);
        ProviderListener entries{};
        HostRoute route;
        if (listener != nullptr) {
            entries = MakeListener(*listener);
            route.callbacks = *listener;
            route.userData = userData;
        }
        // The route goes into the session with the entries, before the engine can deliver.
        return static_cast<typename ConcreteOf<T>::type&>(p).RegisterPERIXListener(
            record, listener != nullptr ? &entries : nullptr, route);
    });
}

template <typename T>
int UnRegisterListener(uint64_t h, const char* scope, const orbperix_device_info* device) {
    return WithObject<T>(h, scope, [device](T& p) {
        PERIXInfo info;
        return p.UnRegisterListener(DeviceInfoOf(device, &info));
    });
}

template <typename T>
int RegisterDataListener(uint64_t h, const char* scope, const char* id, int32_t len,
                         uint32_t type, void* callback) {
    return WithObject<T>(h, scope, [=](T& p) {
        std::string storage;
        const std::string* deviceId = nullptr;
        if (!DeviceIdOf(id, len, &storage, &deviceId)) {
            return Fail(scope, ORBPERIX_C_INVALID_ARGUMENT, kBadText);
        }
        return p.RegisterDataListener(deviceId, type, callback);
    });
}

template <typename T>
int UnRegisterDataListener(uint64_t h, const char* scope, const char* id, int32_t len,
                           uint32_t type) {
    return WithObject<T>(h, scope, [=](T& p) {
        std::string storage;
        const std::string* deviceId = nullptr;
        if (!DeviceIdOf(id, len, &storage, &deviceId)) {
            return Fail(scope, ORBPERIX_C_INVALID_ARGUMENT, kBadText);
        }
        return p.UnRegisterDataListener(deviceId, type);
    });
}

enum class SendKind { kData, kDataNoResult, kBinary };

template <typename T, SendKind S>
int Send(uint64_t h, const char* scope, const char* id, int32_t len,
         const orbperix_binary* data) {
    return WithObject<T>(h, scope, [=](T& p) {
        std::string storage;
        const std::string* deviceId = nullptr;
        if (!DeviceIdOf(id, len, &storage, &deviceId)) {
            return Fail(scope, ORBPERIX_C_INVALID_ARGUMENT, kBadText);
        }
        BinaryData binary;
        BinaryData* record = BinaryOf(data, &binary);
        switch (S) {
            case SendKind::kData: return p.SendData(deviceId, record);
            case SendKind::kDataNoResult: return p.SendDataNoResult(deviceId, record);
            case SendKind::kBinary: break;
        }
        p.SendBinaryData(deviceId, record);
        return 0;
    });
}

// Operations that take one service record: the conversion, written once.
template <typename T, typename Op>
int WithService(uint64_t h, const char* scope, const orbperix_service* service, Op&& op) {
    return WithObject<T>(h, scope, [&](T& p) {
        ServiceInfo storage;
        ServiceInfo* record = nullptr;
        if (!ServiceOf(service, &storage, &record)) {
            return Fail(scope, ORBPERIX_C_INVALID_ARGUMENT, kBadText);
        }
        return op(p, record);
    });
}

template <typename T>
int SendData(uint64_t h, const char* scope, const char* id, int32_t len,
             const orbperix_binary* data) {
    return Send<T, SendKind::kData>(h, scope, id, len, data);
}
template <typename T>
int SendDataNoResult(uint64_t h, const char* scope, const char* id, int32_t len,
                     const orbperix_binary* data) {
    return Send<T, SendKind::kDataNoResult>(h, scope, id, len, data);
}
template <typename T>
int SendBinaryData(uint64_t h, const char* scope, const char* id, int32_t len,
                   const orbperix_binary* data) {
    return Send<T, SendKind::kBinary>(h, scope, id, len, data);
}

template <typename T>
int StartService(uint64_t h, const char* scope, const orbperix_service* service, void* reserved) {
    return WithService<T>(h, scope, service,
                          [reserved](T& p, ServiceInfo* s) { return p.StartDeviceService(s, reserved); });
}

template <typename T>
int StopService(uint64_t h, const char* scope, const orbperix_service* service) {
    return WithService<T>(h, scope, service,
                          [](T& p, ServiceInfo* s) { return p.StopDeviceService(s); });
}

template <typename T>
int RegisterEventCallback(uint64_t h, const char* scope, const char* id, int32_t len,
                          uint32_t type, void* callback) {
    return WithObject<T>(h, scope, [=](T& p) {
        std::string deviceId;
        // The C++ operation takes the id by value: there is no null to pass on.
        if (id == nullptr || !TextOf(id, len, &deviceId)) {
            return Fail(scope, ORBPERIX_C_INVALID_ARGUMENT, kBadText);
        }
        p.RegisterEventCallback(deviceId, type, callback);
        return 0;
    });
}

template <typename T>
int SendByHandler(uint64_t h, const char* scope, void* a, void* b, void* c) {
    return WithObject<T>(h, scope, [=](T& p) { return p.SendByHandler(a, b, c); });
}

}  // namespace
}  // namespace capi
}  // namespace OrbPerix

using namespace OrbPerix;
using namespace OrbPerix::capi;

// The shared operations for both kinds: orbperix_input_<op> and orbperix_source_<op>.
#define ORBPERIX_C_SHARED(op, impl, params, ...)                                              \
    int orbperix_input_##op params {                                                        \
        return impl<IInputProvider>(provider, ORBPERIX_C_SCOPE(orbperix_input_##op), __VA_ARGS__); \
    }                                                                                       \
    int orbperix_source_##op params {                                                       \
        return impl<ISourceProvider>(provider, ORBPERIX_C_SCOPE(orbperix_source_##op),        \
                                     __VA_ARGS__);                                          \
    }
#define ORBPERIX_C_SHARED0(op, impl)                                                          \
    int orbperix_input_##op(uint64_t provider) {                                            \
        return impl<IInputProvider>(provider, ORBPERIX_C_SCOPE(orbperix_input_##op));        \
    }                                                                                       \
    int orbperix_source_##op(uint64_t provider) {                                           \
        return impl<ISourceProvider>(provider, ORBPERIX_C_SCOPE(orbperix_source_##op));      \
    }

extern "C" {

ORBPERIX_C_SHARED0(init, Init)
ORBPERIX_C_SHARED0(deinit, DeInit)
ORBPERIX_C_SHARED(connect_device, Connect,
                  (uint64_t provider, const orbperix_device_info* device), device)
ORBPERIX_C_SHARED(disconnect_device, Disconnect,
                  (uint64_t provider, const orbperix_device_info* device), device)
ORBPERIX_C_SHARED(register_listener, RegisterListener,
                  (uint64_t provider, const orbperix_device_info* device,
                   const orbperix_listener* listener, void* user_data),
                  device, listener, user_data)
ORBPERIX_C_SHARED(unregister_listener, UnRegisterListener,
                  (uint64_t provider, const orbperix_device_info* device), device)
ORBPERIX_C_SHARED(register_data_listener, RegisterDataListener,
                  (uint64_t provider, const char* device_id, int32_t len, uint32_t type,
                   void* callback),
                  device_id, len, type, callback)
ORBPERIX_C_SHARED(unregister_data_listener, UnRegisterDataListener,
                  (uint64_t provider, const char* device_id, int32_t len, uint32_t type),
                  device_id, len, type)
ORBPERIX_C_SHARED(send_data, SendData,
                  (uint64_t provider, const char* device_id, int32_t len,
                   const orbperix_binary* data),
                  device_id, len, data)
ORBPERIX_C_SHARED(send_data_no_result, SendDataNoResult,
                  (uint64_t provider, const char* device_id, int32_t len,
                   const orbperix_binary* data),
                  device_id, len, data)
ORBPERIX_C_SHARED(send_binary_data, SendBinaryData,
                  (uint64_t provider, const char* device_id, int32_t len,
                   const orbperix_binary* data),
                  device_id, len, data)
ORBPERIX_C_SHARED(start_device_service, StartService,
                  (uint64_t provider, const orbperix_service* service, void* reserved), service,
                  reserved)
ORBPERIX_C_SHARED(stop_device_service, StopService,
                  (uint64_t provider, const orbperix_service* service), service)
ORBPERIX_C_SHARED(register_event_callback, RegisterEventCallback,
                  (uint64_t provider, const char* device_id, int32_t len, uint32_t type,
                   void* callback),
                  device_id, len, type, callback)
ORBPERIX_C_SHARED(send_by_handler, SendByHandler,
                  (uint64_t provider, void* a, void* b, void* c), a, b, c)

// ---- Input only ----

int orbperix_input_open_button(uint64_t provider, const orbperix_service* service,
                               void* reserved) {
    return WithService<IInputProvider>(
        provider, ORBPERIX_C_SCOPE(orbperix_input_open_button), service,
        [reserved](IInputProvider& p, ServiceInfo* s) { return p.OpenButton(s, reserved); });
}

int orbperix_input_close_button(uint64_t provider, const orbperix_service* service,
                                void* reserved1, void* reserved2) {
    return WithService<IInputProvider>(
        provider, ORBPERIX_C_SCOPE(orbperix_input_close_button), service,
        [=](IInputProvider& p, ServiceInfo* s) { return p.CloseButton(s, reserved1, reserved2); });
}

namespace {

// The post with the texts ready for the engine; the event's bytes copied into a C++ record.
int PostTexts(InputProvider& input, std::string_view deviceId, std::string_view serviceId,
              const orbperix_remote_event* event) {
    if (event == nullptr) {
        return input.PostRemoteCtrlEventTo(deviceId, serviceId, nullptr);
    }
    RemoteCtrlEvent copy;
    CopyEvent(*event, &copy);
    return input.PostRemoteCtrlEventTo(deviceId, serviceId, &copy);
}

// Texts given with lengths too long for the stack: NUL-terminated copies on the heap (rare:
// identities are short). May throw std::bad_alloc.
ORBPERIX_COLD int PostHeapTexts(InputProvider& input, std::string_view deviceId,
                                std::string_view serviceId, const orbperix_remote_event* event) {
    const std::string device(deviceId);
    const std::string service(serviceId);
    return PostTexts(input, device, service, event);
}

}  // namespace

int orbperix_input_post_remote_ctrl_event(uint64_t provider, const orbperix_service* service,
                                          const orbperix_remote_event* event) {
    static const char* const kScope = ORBPERIX_C_SCOPE(orbperix_input_post_remote_ctrl_event);
    return WithObject<IInputProvider>(provider, kScope, [service, event](IInputProvider& p) {
        auto& input = static_cast<InputProvider&>(p);
        if (service == nullptr) {
            // The C++ operation's own refusal (its line, -2), whatever the event.
            return input.PostRemoteCtrlEvent(nullptr, nullptr);
        }
        EngineText deviceId;
        EngineText serviceId;
        const EngineText::Outcome device =
            deviceId.Read(service->device_id, service->device_id_len);
        const EngineText::Outcome serviceText =
            serviceId.Read(service->service_id, service->service_id_len);
        if (device == EngineText::kBad || serviceText == EngineText::kBad) {
            return Fail(kScope, ORBPERIX_C_INVALID_ARGUMENT, kBadText);
        }
        if (device == EngineText::kTooLong || serviceText == EngineText::kTooLong) {
            return PostHeapTexts(input, deviceId.View(), serviceId.View(), event);
        }
        return PostTexts(input, deviceId.View(), serviceId.View(), event);
    });
}

int orbperix_input_button_write_stream_buffer(uint64_t provider, const orbperix_service* service,
                                              const uint8_t* data, uint32_t len) {
    return WithService<IInputProvider>(
        provider, ORBPERIX_C_SCOPE(orbperix_input_button_write_stream_buffer), service,
        [=](IInputProvider& p, ServiceInfo* s) {
            // The library and the engine only read the bytes.
            return p.ButtonWriteStreamBuffer(s, const_cast<uint8_t*>(data), len);
        });
}

// ---- Source only ----

int orbperix_source_open_audio(uint64_t provider, const orbperix_service* service,
                               const orbperix_audio_param* param) {
    return WithService<ISourceProvider>(
        provider, ORBPERIX_C_SCOPE(orbperix_source_open_audio), service,
        [param](ISourceProvider& p, ServiceInfo* s) {
            if (param == nullptr) {
                return p.OpenAudio(s, nullptr);
            }
            AudioParam copy;  // same layout, checked in capi_layout.cpp
            std::memcpy(&copy, param, sizeof(copy));
            return p.OpenAudio(s, &copy);
        });
}

int orbperix_source_close_audio(uint64_t provider, const orbperix_service* service) {
    return WithService<ISourceProvider>(
        provider, ORBPERIX_C_SCOPE(orbperix_source_close_audio), service,
        [](ISourceProvider& p, ServiceInfo* s) { return p.CloseAudio(s); });
}

int orbperix_source_audio_write_stream_buffer(uint64_t provider, const orbperix_service* service,
                                              const uint8_t* data, uint32_t length) {
    return WithService<ISourceProvider>(
        provider, ORBPERIX_C_SCOPE(orbperix_source_audio_write_stream_buffer), service,
        [=](ISourceProvider& p, ServiceInfo* s) {
            p.AudioWriteStreamBuffer(s, const_cast<uint8_t*>(data), length);
            return 0;
        });
}

int orbperix_source_audio_pass_through(uint64_t provider, void* a, void* b) {
    return WithObject<ISourceProvider>(provider,
                                       ORBPERIX_C_SCOPE(orbperix_source_audio_pass_through),
                                       [=](ISourceProvider& p) { return p.AudioPassThrough(a, b); });
}

int orbperix_source_open_partial_refresh(uint64_t provider, const orbperix_service* service) {
    return WithService<ISourceProvider>(
        provider, ORBPERIX_C_SCOPE(orbperix_source_open_partial_refresh), service,
        [](ISourceProvider& p, ServiceInfo* s) { return p.OpenPartialRefresh(s); });
}

int orbperix_source_close_partial_refresh(uint64_t provider, const orbperix_service* service) {
    return WithService<ISourceProvider>(
        provider, ORBPERIX_C_SCOPE(orbperix_source_close_partial_refresh), service,
        [](ISourceProvider& p, ServiceInfo* s) { return p.ClosePartialRefresh(s); });
}

int orbperix_source_partial_refresh_write_stream_buffer(uint64_t provider,
                                                        const orbperix_service* service,
                                                        const uint8_t* data, int32_t length) {
    return WithService<ISourceProvider>(
        provider, ORBPERIX_C_SCOPE(orbperix_source_partial_refresh_write_stream_buffer), service,
        [=](ISourceProvider& p, ServiceInfo* s) {
            return p.PartialRefreshWriteStreamBuffer(s, const_cast<uint8_t*>(data), length);
        });
}

}  // extern "C"
