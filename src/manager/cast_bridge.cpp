// Cast engine bridge: each operation is one call on the casting engine's singleton. Nothing is
// logged and the manager's state is not consulted; threading is the casting engine's.
#include "CastSessionManager.h"
#include "orbperix/manager.h"

namespace OrbPerix {

int PERIXProviderManager::InitCastEngine(std::shared_ptr<ICastServiceListener> listener) {
    // 1 for success: the casting engine's convention, kept for existing hosts.
    return CastSessionManager::GetInstance().Init(listener) ? 1 : 0;
}

int PERIXProviderManager::SetCastEngineLocalDevice(const CastLocalDevice& device) {
    CastSessionManager::GetInstance().SetLocalDevice(device);
    return 0;
}

std::shared_ptr<ICastSession> PERIXProviderManager::CreateCastSession(
    const CastSessionProperty& property) {
    return CastSessionManager::GetInstance().CreateCastSession(property);
}

bool PERIXProviderManager::DestroyCastSession(std::shared_ptr<ICastSession> session) {
    return CastSessionManager::GetInstance().DestroyCastSession(session);
}

}  // namespace OrbPerix
