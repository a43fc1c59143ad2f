// The C test's C++ reference: a C++ input provider that posts the C test's events whole through
// IInputProvider, and a recording cast session behind the casting stand-in.
#include "cpp_reference.h"

#include <cstring>
#include <memory>

#include "ScreenRelayTest.h"
#include "orbperix/manager.h"

namespace {

std::shared_ptr<OrbPerix::IInputProvider>& Provider() {
    static std::shared_ptr<OrbPerix::IInputProvider> provider;
    return provider;
}

}  // namespace

extern "C" int capi_ref_open(void) {
    Provider() = OrbPerix::PERIXProviderManager::GetInstance().CreateInputProvider();
    return Provider() ? 0 : -1;
}

extern "C" int capi_ref_post(const orbperix_remote_event* event, const char* device_id,
                             const char* service_id) {
    if (!Provider() || event == nullptr) {
        return -1;
    }
    ServiceInfo service{device_id, service_id, 6};
    RemoteCtrlEvent copy;  // the whole record: the records agree field by field (capi_layout.cpp)
    std::memcpy(&copy, event, sizeof(copy));
    return Provider()->PostRemoteCtrlEvent(&service, &copy);
}

extern "C" void capi_ref_close(void) {
    if (Provider()) {
        OrbPerix::PERIXProviderManager::GetInstance().DestoryInputProvider(Provider());
        Provider().reset();
    }
}

namespace {

// A cast session that records what the C interface hands it.
class RecordingSession : public ICastSession {
public:
    int calls[9] = {};
    std::string lastDevice;
    uint32_t lastProtocol = 0;
    std::shared_ptr<ICastSessionListener> listener;

    int RegisterListener(std::shared_ptr<ICastSessionListener> l) override {
        ++calls[0];
        listener = std::move(l);
        return 0;
    }
    int UnregisterListener() override {
        ++calls[1];
        listener.reset();
        return 0;
    }
    int AddDevice(const std::string& id) override { return Keep(2, id, 0); }
    int RemoveDevice(const std::string& id) override { return Keep(3, id, 0); }
    int StartAuth(const std::string& id) override { return Keep(4, id, 4); }
    int GetSessionId(std::string& id) override {
        ++calls[5];
        id = "session-0123456789abcdef";
        return 0;
    }
    int SetSessionProperty(const CastSessionProperty& property) override {
        ++calls[6];
        lastProtocol = property.protocolType;
        return 0;
    }
    int Play(const std::string& id) override { return Keep(7, id, 0); }
    int Release() override {
        ++calls[8];
        return 8;
    }

private:
    int Keep(int op, const std::string& id, int result) {
        ++calls[op];
        lastDevice = id;
        return result;
    }
};

std::shared_ptr<RecordingSession>& Recording() {
    static std::shared_ptr<RecordingSession> session;
    return session;
}

}  // namespace

extern "C" void capi_ref_cast_session(int on) {
    Recording() = on != 0 ? std::make_shared<RecordingSession>() : nullptr;
    screenrelay_test::SetResults(true, 0, Recording(), true);
}

extern "C" int capi_ref_cast_calls(int operation) {
    return Recording() && operation >= 0 && operation < 9 ? Recording()->calls[operation] : -1;
}

extern "C" const char* capi_ref_cast_last_device(void) {
    return Recording() ? Recording()->lastDevice.c_str() : "";
}

extern "C" unsigned capi_ref_cast_last_protocol(void) {
    return Recording() ? Recording()->lastProtocol : 0u;
}

extern "C" int capi_ref_cast_fire(int code, const char* detail) {
    if (!Recording() || !Recording()->listener || !Recording()->listener->onEvent) {
        return -1;
    }
    Recording()->listener->onEvent(code, detail);
    return 0;
}

extern "C" int capi_ref_cast_service_died(void) {
    std::shared_ptr<ICastServiceListener> listener = screenrelay_test::GetRecord().lastListener;
    if (!listener) {
        return -1;
    }
    listener->OnServiceDied();
    return 0;
}
