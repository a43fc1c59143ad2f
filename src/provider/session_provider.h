// SessionProvider: the twelve connection and services operations that the input and source
// providers both expose, implemented once for both interfaces. Each runs the shared SessionOps
// code with the kind's SessionKind record; a provider derives from
// SessionProvider<IInputProvider> or SessionProvider<ISourceProvider> and adds its own channel
// operations, Init/DeInit and the kind's RegisterPERIXListener.
//
// The two instantiations are compiled once, in session_provider.cpp. The template is declared
// under the library's hidden default visibility (its type arguments being exported does not
// export it), so neither its functions nor its virtual table become part of the library's
// exported symbols; the exports check holds that.
//
// Threading: as SessionOps (host threads; no library lock held while the engine or a host
// listener runs, except the provider mutex around CreateServiceHandler).
#ifndef ORBPERIX_SRC_PROVIDER_SESSION_PROVIDER_H_
#define ORBPERIX_SRC_PROVIDER_SESSION_PROVIDER_H_

#include <cstdint>
#include <string>

#include "orbperix/providers.h"
#include "provider/session_ops.h"

namespace OrbPerix {

template <typename Interface>
class SessionProvider : public Interface {
public:
    SessionProvider(const SessionProvider&) = delete;
    SessionProvider& operator=(const SessionProvider&) = delete;

    int ConnectDevice(PERIXInfo* deviceInfo) override;
    int DisconnectDevice(PERIXInfo* deviceInfo) override;
    int UnRegisterListener(PERIXInfo* deviceInfo) override;
    int RegisterDataListener(const std::string* deviceId, uint32_t type, void* callback) override;
    int UnRegisterDataListener(const std::string* deviceId, uint32_t type) override;
    int SendData(const std::string* deviceId, BinaryData* data) override;
    int SendDataNoResult(const std::string* deviceId, BinaryData* data) override;
    int StartDeviceService(ServiceInfo* service, void* reserved) override;
    int StopDeviceService(ServiceInfo* service) override;
    void RegisterEventCallback(std::string deviceId, uint32_t type, void* callback) override;
    void SendBinaryData(const std::string* deviceId, BinaryData* data) override;
    int SendByHandler(void* a, void* b, void* c) override;

protected:
    SessionProvider(const SessionKind& kind, const EngineLoad& load) noexcept : ops_(kind, load) {}
    ~SessionProvider() override = default;

    SessionOps ops_;  // the kind, the engine load, the provider mutex, the last handle
};

extern template class SessionProvider<IInputProvider>;
extern template class SessionProvider<ISourceProvider>;

}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_PROVIDER_SESSION_PROVIDER_H_
