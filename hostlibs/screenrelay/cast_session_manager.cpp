// Stand-in for the host installation's ScreenRelay: results set by tests, calls recorded.
#include <mutex>

#include "CastSessionManager.h"
#include "ScreenRelayTest.h"

namespace {

struct State {
    std::mutex mutex;
    bool initResult = true;
    int setLocalDeviceResult = 0;
    std::shared_ptr<ICastSession> sessionToCreate;
    bool destroyResult = true;
    screenrelay_test::Record record;
};

State& GetState() {
    static State state;
    return state;
}

}  // namespace

CastSessionManager& CastSessionManager::GetInstance() {
    static CastSessionManager instance;
    return instance;
}

bool CastSessionManager::Init(std::shared_ptr<ICastServiceListener> listener) {
    State& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    ++s.record.initCalls;
    s.record.lastListener = std::move(listener);
    return s.initResult;
}

int CastSessionManager::SetLocalDevice(const CastLocalDevice& device) {
    State& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    ++s.record.setLocalDeviceCalls;
    s.record.lastDeviceId = device.deviceId;
    return s.setLocalDeviceResult;
}

std::shared_ptr<ICastSession> CastSessionManager::CreateCastSession(
    const CastSessionProperty& property) {
    State& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    ++s.record.createCalls;
    s.record.lastProtocolType = property.protocolType;
    return s.sessionToCreate;
}

bool CastSessionManager::DestroyCastSession(std::shared_ptr<ICastSession> session) {
    State& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    ++s.record.destroyCalls;
    s.record.lastDestroyed = std::move(session);
    return s.destroyResult;
}

namespace screenrelay_test {

void SetResults(bool initResult, int setLocalDeviceResult,
                std::shared_ptr<ICastSession> sessionToCreate, bool destroyResult) {
    State& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.initResult = initResult;
    s.setLocalDeviceResult = setLocalDeviceResult;
    s.sessionToCreate = std::move(sessionToCreate);
    s.destroyResult = destroyResult;
}

Record GetRecord() {
    State& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.record;
}

void Reset() {
    State& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.initResult = true;
    s.setLocalDeviceResult = 0;
    s.sessionToCreate.reset();
    s.destroyResult = true;
    s.record = Record();
}

}  // namespace screenrelay_test
