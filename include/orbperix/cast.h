// Types exchanged between the host, OrbPerixProvider's cast bridge and the casting engine
// (ScreenRelay). The bridge only forwards them; their meaning is the casting engine's.
//
// ICastSession objects are made by the casting engine; ICastServiceListener is implemented by
// the host and called on the casting engine's threads.
#ifndef ORBPERIX_CAST_H_
#define ORBPERIX_CAST_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "orbperix/export.h"

// The local device as the casting engine knows it.
struct CastLocalDevice {
    std::string deviceId;
    std::string deviceName;
    uint32_t deviceType;
    std::string ipAddress;
};

// Properties of a cast session to create.
struct CastSessionProperty {
    uint32_t protocolType;
    uint32_t endType;
    uint32_t videoWidth;
    uint32_t videoHeight;
    uint32_t videoFps;
    uint32_t audioSampleRate;
};

class ICastSessionListener;

// A session made by the casting engine: nine operations, then the destructor (tenth slot).
class ORBPERIX_API ICastSession {
public:
    ICastSession();
    ICastSession(const ICastSession& other);
    ICastSession& operator=(const ICastSession& other);

    virtual int RegisterListener(std::shared_ptr<ICastSessionListener> listener) = 0;
    virtual int UnregisterListener() = 0;
    virtual int AddDevice(const std::string& deviceId) = 0;
    virtual int RemoveDevice(const std::string& deviceId) = 0;
    virtual int StartAuth(const std::string& deviceId) = 0;
    virtual int GetSessionId(std::string& sessionId) = 0;
    virtual int SetSessionProperty(const CastSessionProperty& property) = 0;
    virtual int Play(const std::string& deviceId) = 0;
    virtual int Release() = 0;
    virtual ~ICastSession();
};

// The host's listener of casting-service events: one operation, then the destructor.
class ORBPERIX_API ICastServiceListener {
public:
    ICastServiceListener();
    ICastServiceListener(const ICastServiceListener& other);
    ICastServiceListener& operator=(const ICastServiceListener& other);

    virtual void OnServiceDied() = 0;
    virtual ~ICastServiceListener();
};

// A session listener: a callback and two shared references, nothing virtual but the
// destructor. Copies share both references.
class ORBPERIX_API ICastSessionListener {
public:
    using EventCallback = std::function<void(int eventCode, const std::string& detail)>;

    ICastSessionListener();
    ICastSessionListener(const ICastSessionListener& other);
    ICastSessionListener& operator=(const ICastSessionListener& other);
    virtual ~ICastSessionListener();

    EventCallback onEvent;
    std::shared_ptr<ICastSession> session;
    std::shared_ptr<ICastServiceListener> serviceListener;
};

#endif  // ORBPERIX_CAST_H_
