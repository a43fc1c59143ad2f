// ScreenRelay: the casting engine's session manager.
//
// This repository builds a stand-in with this exact declaration; the host installation's
// ScreenRelay replaces it by file.
#ifndef HOSTLIBS_SCREENRELAY_CAST_SESSION_MANAGER_H_
#define HOSTLIBS_SCREENRELAY_CAST_SESSION_MANAGER_H_

#include <memory>

#include "orbperix/cast.h"

#if defined(_WIN32)
#if defined(SCREENRELAY_COMPILING)
#define SCREENRELAY_API __declspec(dllexport)
#else
#define SCREENRELAY_API __declspec(dllimport)
#endif
#else
#define SCREENRELAY_API __attribute__((visibility("default")))
#endif

class SCREENRELAY_API CastSessionManager {
public:
    static CastSessionManager& GetInstance();
    bool Init(std::shared_ptr<ICastServiceListener> listener);
    int SetLocalDevice(const CastLocalDevice& device);
    std::shared_ptr<ICastSession> CreateCastSession(const CastSessionProperty& property);
    bool DestroyCastSession(std::shared_ptr<ICastSession> session);
};

#endif  // HOSTLIBS_SCREENRELAY_CAST_SESSION_MANAGER_H_
