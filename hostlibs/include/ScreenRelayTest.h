// Test interface of the ScreenRelay stand-in: settable results and a record of the calls.
// Not part of the host installation's real library. Thread-safe.
#ifndef HOSTLIBS_SCREENRELAY_TEST_H_
#define HOSTLIBS_SCREENRELAY_TEST_H_

#include <memory>
#include <string>

#include "CastSessionManager.h"

namespace screenrelay_test {

struct Record {
    int initCalls = 0;
    int setLocalDeviceCalls = 0;
    int createCalls = 0;
    int destroyCalls = 0;
    std::shared_ptr<ICastServiceListener> lastListener;  // as Init received it
    std::string lastDeviceId;                            // of the last SetLocalDevice
    uint32_t lastProtocolType = 0;                       // of the last CreateCastSession
    std::shared_ptr<ICastSession> lastDestroyed;         // as DestroyCastSession received it
};

// Results the stand-in gives from now on (defaults: true, 0, empty session, true).
SCREENRELAY_API void SetResults(bool initResult, int setLocalDeviceResult,
                                std::shared_ptr<ICastSession> sessionToCreate,
                                bool destroyResult);
SCREENRELAY_API Record GetRecord();
// Back to the defaults, with an empty record.
SCREENRELAY_API void Reset();

}  // namespace screenrelay_test

#endif  // HOSTLIBS_SCREENRELAY_TEST_H_
