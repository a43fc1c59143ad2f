// The provider interfaces handed out by PERIXProviderManager.
//
// Declaration order is virtual-table slot order and part of the binary interface. Results are
// 0 for success, -2 invalid argument or wrong service type, -3 out of memory, -4 wrong state,
// -5 a sink record with server port 0, -9 a session-key copy failure, -13 engine, handle,
// session or copy not available; any other non-zero value is the engine's own result.
//
// Host threads call the operations. Listener functions given to RegisterPERIXListener are
// called on engine threads; the data they receive is a private copy valid during the call.
#ifndef ORBPERIX_PROVIDERS_H_
#define ORBPERIX_PROVIDERS_H_

#include <cstdint>
#include <string>

#include "orbperix/export.h"
#include "orbperix/records.h"
#include "orbperix/remote_ctrl_event.h"

namespace OrbPerix {

class ORBPERIX_API IProvider {
public:
    IProvider();
    IProvider(const IProvider& other);
    IProvider& operator=(const IProvider& other);
    virtual ~IProvider();

    virtual int Init() = 0;
    virtual void DeInit() = 0;
    virtual int ConnectDevice(PERIXInfo* deviceInfo) = 0;
};

class ORBPERIX_API IInputProvider : public IProvider {
public:
    IInputProvider();
    IInputProvider(const IInputProvider& other);
    IInputProvider(IInputProvider&& other);
    IInputProvider& operator=(const IInputProvider& other);
    IInputProvider& operator=(IInputProvider&& other);
    ~IInputProvider() override;

    virtual int DisconnectDevice(PERIXInfo* deviceInfo) = 0;
    virtual int RegisterPERIXListener(PERIXInfo* deviceInfo, ProviderListener* listener) = 0;
    virtual int UnRegisterListener(PERIXInfo* deviceInfo) = 0;
    virtual int RegisterDataListener(const std::string* deviceId, uint32_t type,
                                     void* callback) = 0;
    virtual int UnRegisterDataListener(const std::string* deviceId, uint32_t type) = 0;
    virtual int SendData(const std::string* deviceId, BinaryData* data) = 0;
    virtual int SendDataNoResult(const std::string* deviceId, BinaryData* data) = 0;
    virtual int StartDeviceService(ServiceInfo* service, void* reserved) = 0;
    virtual int StopDeviceService(ServiceInfo* service) = 0;
    virtual void RegisterEventCallback(std::string deviceId, uint32_t type, void* callback) = 0;
    virtual int OpenButton(ServiceInfo* service, void* reserved) = 0;
    virtual int CloseButton(ServiceInfo* service, void* reserved1, void* reserved2) = 0;
    virtual int PostRemoteCtrlEvent(ServiceInfo* service, RemoteCtrlEvent* event) = 0;
    virtual void SendBinaryData(const std::string* deviceId, BinaryData* data) = 0;
    virtual int ButtonWriteStreamBuffer(ServiceInfo* service, uint8_t* data, uint32_t len) = 0;
    virtual int SendByHandler(void* a, void* b, void* c) = 0;
};

class ORBPERIX_API ISourceProvider : public IProvider {
public:
    ISourceProvider();
    ISourceProvider(const ISourceProvider& other);
    ISourceProvider(ISourceProvider&& other);
    ISourceProvider& operator=(const ISourceProvider& other);
    ISourceProvider& operator=(ISourceProvider&& other);
    ~ISourceProvider() override;

    virtual int DisconnectDevice(PERIXInfo* deviceInfo) = 0;
    virtual int RegisterPERIXListener(PERIXInfo* deviceInfo, ProviderListener* listener) = 0;
    virtual int UnRegisterListener(PERIXInfo* deviceInfo) = 0;
    virtual int RegisterDataListener(const std::string* deviceId, uint32_t type,
                                     void* callback) = 0;
    virtual int UnRegisterDataListener(const std::string* deviceId, uint32_t type) = 0;
    virtual int SendData(const std::string* deviceId, BinaryData* data) = 0;
    virtual int SendDataNoResult(const std::string* deviceId, BinaryData* data) = 0;
    virtual int StartDeviceService(ServiceInfo* service, void* reserved) = 0;
    virtual int StopDeviceService(ServiceInfo* service) = 0;
    virtual void RegisterEventCallback(std::string deviceId, uint32_t type, void* callback) = 0;
    virtual int OpenAudio(ServiceInfo* service, AudioParam* audioParam) = 0;
    virtual int CloseAudio(ServiceInfo* service) = 0;
    virtual void AudioWriteStreamBuffer(ServiceInfo* service, uint8_t* data, uint32_t length) = 0;
    virtual int AudioPassThrough(void* a, void* b) = 0;
    virtual int OpenPartialRefresh(ServiceInfo* service) = 0;
    virtual int ClosePartialRefresh(ServiceInfo* service) = 0;
    virtual int PartialRefreshWriteStreamBuffer(ServiceInfo* service, uint8_t* data,
                                                int32_t length) = 0;
    virtual void SendBinaryData(const std::string* deviceId, BinaryData* data) = 0;
    virtual int SendByHandler(void* a, void* b, void* c) = 0;
};

class ORBPERIX_API ISinkProvider : public IProvider {
public:
    ISinkProvider();
    ISinkProvider(const ISinkProvider& other);
    ISinkProvider(ISinkProvider&& other);
    ISinkProvider& operator=(const ISinkProvider& other);
    ISinkProvider& operator=(ISinkProvider&& other);
    ~ISinkProvider() override;

    virtual int CreateMeshProvider(PERIXInfo* deviceInfo) = 0;
    virtual int DisconnectDevice(PERIXInfo* deviceInfo, void* arg) = 0;
    virtual int GetConnectionStatus() = 0;
    virtual int RegisterEngineCallback(uint32_t type, void* callback) = 0;
    virtual int SendByHandler(void* a, void* b, void* c) = 0;
};

}  // namespace OrbPerix

#endif  // ORBPERIX_PROVIDERS_H_
