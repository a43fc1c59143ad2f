// Reference events for the C test, built with the C++ record's own field names; the C test
// builds the same events with the C names (capi_test.c, BuildEvent). Keep both lists in step.
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

RemoteCtrlEvent Build(int index) {
    RemoteCtrlEvent e;
    std::memset(&e, 0, sizeof(e));
    switch (index) {
        case 0:  // touch, two pointers
            e.type = 0;
            e.payload.touch.action = 0;
            e.payload.touch.pointerCount = 2;
            e.payload.touch.pointerIds[0] = 1;
            e.payload.touch.pointerIds[1] = 2;
            e.payload.touch.x[0] = 0.25;
            e.payload.touch.y[0] = 0.5;
            e.payload.touch.x[1] = 0.75;
            e.payload.touch.y[1] = 0.125;
            break;
        case 1:  // key up
            e.type = 1;
            e.payload.key.action = 1;
            e.payload.key.keyValue1 = 0x1234;
            e.payload.key.keyValue2 = 0x00AB;
            e.payload.key.keyValue3 = 0x01020304;
            break;
        case 2:  // mouse move
            e.type = 6;
            e.headerFlags = 0x08;
            e.headerTag = 0x5A;
            e.payload.mouse.action = 2;
            e.payload.mouse.button = 1;
            e.payload.mouse.coords[0] = 10.5;
            e.payload.mouse.coords[1] = 20.25;
            e.payload.mouse.coords[2] = 640;
            e.payload.mouse.coords[3] = 480;
            break;
        case 3:  // horizontal wheel
            e.type = 8;
            e.payload.wheel.action = 1;
            e.payload.wheel.buttons = 5;
            e.payload.wheel.wheelValue = 120;
            e.payload.wheel.x = 0.5;
            e.payload.wheel.y = 0.25;
            break;
        case 4:  // text input content
            e.type = 7;
            e.payload.input.action = 0;
            e.payload.input.content.contentLength = 5;
            std::memcpy(e.payload.input.content.content, "hello", 5);
            break;
        case 5:  // message extend
            e.type = 10;
            e.payload.message.action = 0;
            e.payload.message.messageLength = 6;
            e.payload.message.messageWord = 0x0102;
            std::memcpy(e.payload.message.messageData, "abcd", 4);
            break;
        default:  // zoom
            e.type = 2;
            e.payload.zoom.x = 0.5;
            e.payload.zoom.y = 0.5;
            e.payload.zoom.zoomValue = 0x0203;
            break;
    }
    return e;
}

}  // namespace

extern "C" int capi_ref_event_count(void) { return 7; }

extern "C" int capi_ref_open(void) {
    Provider() = OrbPerix::PERIXProviderManager::GetInstance().CreateInputProvider();
    return Provider() ? 0 : -1;
}

extern "C" int capi_ref_post(int index, const char* device_id, const char* service_id) {
    if (!Provider()) {
        return -1;
    }
    ServiceInfo service{device_id, service_id, 6};
    RemoteCtrlEvent event = Build(index);
    return Provider()->PostRemoteCtrlEvent(&service, &event);
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
