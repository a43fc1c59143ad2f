// The C interface of the cast bridge. C hosts cannot implement the C++ listener classes, so the
// wrapper implements them around a C callback and its user data. Cast sessions are held in the
// handle table like providers.
#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "capi/capi_common.h"
#include "orbperix/cast.h"
#include "orbperix/manager.h"

using namespace OrbPerix;
using namespace OrbPerix::capi;

namespace {

// Called on the casting engine's threads.
class CServiceListener final : public ICastServiceListener {
public:
    CServiceListener(orbperix_cast_service_died_fn fn, void* userData) noexcept
        : fn_(fn), userData_(userData) {}
    void OnServiceDied() override { fn_(userData_); }

private:
    orbperix_cast_service_died_fn fn_;
    void* userData_;
};

CastSessionProperty PropertyOf(const orbperix_cast_session_property& p) noexcept {
    return CastSessionProperty{p.protocol_type, p.end_type,     p.video_width,
                               p.video_height,  p.video_fps, p.audio_sample_rate};
}

// Session operations that take one device id text.
template <typename Op>
int WithDeviceId(uint64_t h, const char* scope, const char* id, int32_t len, Op&& op) {
    return WithObject<ICastSession>(h, scope, [&](ICastSession& s) {
        std::string deviceId;
        if (id == nullptr || !TextOf(id, len, &deviceId)) {
            return Fail(scope, ORBPERIX_C_INVALID_ARGUMENT, kBadText);
        }
        return op(s, deviceId);
    });
}

std::string OptionalText(const char* text) { return text != nullptr ? std::string(text) : std::string(); }

}  // namespace

extern "C" {

int orbperix_init_cast_engine(orbperix_cast_service_died_fn on_service_died, void* user_data) {
    try {
        std::shared_ptr<ICastServiceListener> listener;
        if (on_service_died != nullptr) {
            listener = std::make_shared<CServiceListener>(on_service_died, user_data);
        }
        return PERIXProviderManager::GetInstance().InitCastEngine(std::move(listener));
    } catch (...) {
        Fail(ORBPERIX_C_SCOPE(orbperix_init_cast_engine), ORBPERIX_C_NO_MEMORY, "out of memory");
        return 0;
    }
}

int orbperix_set_cast_engine_local_device(const orbperix_cast_local_device* device) {
    static const char* const kScope = ORBPERIX_C_SCOPE(orbperix_set_cast_engine_local_device);
    if (device == nullptr) {
        return Fail(kScope, ORBPERIX_C_INVALID_ARGUMENT, "device is null");
    }
    try {
        const CastLocalDevice copy{OptionalText(device->device_id), OptionalText(device->device_name),
                                   device->device_type, OptionalText(device->ip_address)};
        return PERIXProviderManager::GetInstance().SetCastEngineLocalDevice(copy);
    } catch (...) {
        return Fail(kScope, ORBPERIX_C_NO_MEMORY, "out of memory");
    }
}

orbperix_cast_session_handle orbperix_create_cast_session(
    const orbperix_cast_session_property* property) {
    static const char* const kScope = ORBPERIX_C_SCOPE(orbperix_create_cast_session);
    if (property == nullptr) {
        Fail(kScope, ORBPERIX_C_INVALID_ARGUMENT, "property is null");
        return 0;
    }
    std::shared_ptr<ICastSession> session =
        PERIXProviderManager::GetInstance().CreateCastSession(PropertyOf(*property));
    if (!session) {
        return 0;
    }
    const uint64_t handle = HandleTable::Instance().Add(HandleKind::kCastSession, session);
    if (handle == 0) {
        PERIXProviderManager::GetInstance().DestroyCastSession(session);
        Fail(kScope, ORBPERIX_C_NO_MEMORY, "no handle for the new session (out of memory)");
    }
    return handle;
}

int orbperix_destroy_cast_session(orbperix_cast_session_handle session) {
    std::shared_ptr<ICastSession> object = std::static_pointer_cast<ICastSession>(
        HandleTable::Instance().Remove(session, HandleKind::kCastSession));
    if (!object) {
        log::Trace(LOG_MESSAGE_ERROR, ORBPERIX_C_SCOPE(orbperix_destroy_cast_session),
                   "invalid handle ", session);
        return ORBPERIX_C_BAD_HANDLE;
    }
    return PERIXProviderManager::GetInstance().DestroyCastSession(std::move(object)) ? 1 : 0;
}

int orbperix_cast_session_register_listener(orbperix_cast_session_handle session,
                                            orbperix_cast_session_event_fn on_event,
                                            void* user_data) {
    return WithObject<ICastSession>(
        session, ORBPERIX_C_SCOPE(orbperix_cast_session_register_listener),
        [=](ICastSession& s) {
            std::shared_ptr<ICastSessionListener> listener;
            if (on_event != nullptr) {
                listener = std::make_shared<ICastSessionListener>();
                listener->onEvent = [on_event, user_data](int code, const std::string& detail) {
                    on_event(user_data, code, detail.data(),
                             static_cast<uint32_t>(detail.size()));
                };
            }
            return s.RegisterListener(std::move(listener));
        });
}

int orbperix_cast_session_unregister_listener(orbperix_cast_session_handle session) {
    return WithObject<ICastSession>(session,
                                    ORBPERIX_C_SCOPE(orbperix_cast_session_unregister_listener),
                                    [](ICastSession& s) { return s.UnregisterListener(); });
}

int orbperix_cast_session_add_device(orbperix_cast_session_handle session, const char* device_id,
                                     int32_t len) {
    return WithDeviceId(session, ORBPERIX_C_SCOPE(orbperix_cast_session_add_device), device_id,
                        len, [](ICastSession& s, const std::string& id) { return s.AddDevice(id); });
}

int orbperix_cast_session_remove_device(orbperix_cast_session_handle session,
                                        const char* device_id, int32_t len) {
    return WithDeviceId(session, ORBPERIX_C_SCOPE(orbperix_cast_session_remove_device), device_id,
                        len,
                        [](ICastSession& s, const std::string& id) { return s.RemoveDevice(id); });
}

int orbperix_cast_session_start_auth(orbperix_cast_session_handle session, const char* device_id,
                                     int32_t len) {
    return WithDeviceId(session, ORBPERIX_C_SCOPE(orbperix_cast_session_start_auth), device_id,
                        len, [](ICastSession& s, const std::string& id) { return s.StartAuth(id); });
}

int orbperix_cast_session_play(orbperix_cast_session_handle session, const char* device_id,
                               int32_t len) {
    return WithDeviceId(session, ORBPERIX_C_SCOPE(orbperix_cast_session_play), device_id, len,
                        [](ICastSession& s, const std::string& id) { return s.Play(id); });
}

int orbperix_cast_session_get_session_id(orbperix_cast_session_handle session, char* buffer,
                                         uint32_t capacity, uint32_t* full_len) {
    static const char* const kScope = ORBPERIX_C_SCOPE(orbperix_cast_session_get_session_id);
    return WithObject<ICastSession>(session, kScope, [=](ICastSession& s) {
        if (buffer == nullptr && capacity != 0) {
            return Fail(kScope, ORBPERIX_C_INVALID_ARGUMENT, "buffer is null");
        }
        std::string id;
        const int result = s.GetSessionId(id);
        if (capacity > 0) {
            const size_t n = std::min<size_t>(id.size(), capacity - 1u);
            std::memcpy(buffer, id.data(), n);
            buffer[n] = '\0';
        }
        if (full_len != nullptr) {
            *full_len = static_cast<uint32_t>(id.size());
        }
        return result;
    });
}

int orbperix_cast_session_set_property(orbperix_cast_session_handle session,
                                       const orbperix_cast_session_property* property) {
    static const char* const kScope = ORBPERIX_C_SCOPE(orbperix_cast_session_set_property);
    return WithObject<ICastSession>(session, kScope, [=](ICastSession& s) {
        if (property == nullptr) {
            return Fail(kScope, ORBPERIX_C_INVALID_ARGUMENT, "property is null");
        }
        return s.SetSessionProperty(PropertyOf(*property));
    });
}

int orbperix_cast_session_release(orbperix_cast_session_handle session) {
    return WithObject<ICastSession>(session, ORBPERIX_C_SCOPE(orbperix_cast_session_release),
                                    [](ICastSession& s) { return s.Release(); });
}

}  // extern "C"
