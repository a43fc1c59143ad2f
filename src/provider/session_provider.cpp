#include "provider/session_provider.h"

namespace OrbPerix {

template <typename Interface>
int SessionProvider<Interface>::ConnectDevice(PERIXInfo* deviceInfo) {
    return ops_.ConnectDevice(deviceInfo);
}

template <typename Interface>
int SessionProvider<Interface>::DisconnectDevice(PERIXInfo* deviceInfo) {
    return ops_.DisconnectDevice(deviceInfo);
}

template <typename Interface>
int SessionProvider<Interface>::UnRegisterListener(PERIXInfo* deviceInfo) {
    return ops_.UnRegisterListener(deviceInfo);
}

template <typename Interface>
int SessionProvider<Interface>::RegisterDataListener(const std::string* deviceId, uint32_t type,
                                                     void* callback) {
    return ops_.RegisterDataListener(deviceId, type, callback);
}

template <typename Interface>
int SessionProvider<Interface>::UnRegisterDataListener(const std::string* deviceId,
                                                       uint32_t type) {
    return ops_.UnRegisterDataListener(deviceId, type);
}

template <typename Interface>
int SessionProvider<Interface>::SendData(const std::string* deviceId, BinaryData* data) {
    return ops_.SendData(deviceId, data);
}

template <typename Interface>
int SessionProvider<Interface>::SendDataNoResult(const std::string* deviceId, BinaryData* data) {
    return ops_.SendDataNoResult(deviceId, data);
}

template <typename Interface>
int SessionProvider<Interface>::StartDeviceService(ServiceInfo* service, void* reserved) {
    return ops_.StartDeviceService(service, reserved);
}

template <typename Interface>
int SessionProvider<Interface>::StopDeviceService(ServiceInfo* service) {
    return ops_.StopDeviceService(service);
}

template <typename Interface>
void SessionProvider<Interface>::RegisterEventCallback(std::string deviceId, uint32_t type,
                                                       void* callback) {
    ops_.RegisterEventCallback(deviceId, type, callback);
}

template <typename Interface>
void SessionProvider<Interface>::SendBinaryData(const std::string* deviceId, BinaryData* data) {
    ops_.SendBinaryData(deviceId, data);
}

template <typename Interface>
int SessionProvider<Interface>::SendByHandler(void* a, void* b, void* c) {
    return ops_.SendByHandler(a, b, c);
}

template class SessionProvider<IInputProvider>;
template class SessionProvider<ISourceProvider>;

}  // namespace OrbPerix
