// Cast engine bridge: each operation is one call on the casting engine's singleton. Nothing is
// logged and the manager's state is not consulted; threading is the casting engine's. An
// exception from the casting engine is turned into that operation's failure result, so that
// none leaves the library.
#include "CastSessionManager.h"
#include "orbperix/manager.h"

namespace OrbPerix {

int PERIXProviderManager::InitCastEngine(std::shared_ptr<ICastServiceListener> listener) {
    try {
        // 1 for success, 0 for failure: the casting engine's convention, not ours.
        return CastSessionManager::GetInstance().Init(listener) ? 1 : 0;
    } catch (...) {
        return 0;
    }
}

int PERIXProviderManager::SetCastEngineLocalDevice(const CastLocalDevice& device) {
    try {
        CastSessionManager::GetInstance().SetLocalDevice(device);
    } catch (...) {
    }
    return 0;
}

std::shared_ptr<ICastSession> PERIXProviderManager::CreateCastSession(
    const CastSessionProperty& property) {
    try {
        return CastSessionManager::GetInstance().CreateCastSession(property);
    } catch (...) {
        return nullptr;
    }
}

bool PERIXProviderManager::DestroyCastSession(std::shared_ptr<ICastSession> session) {
    try {
        return CastSessionManager::GetInstance().DestroyCastSession(session);
    } catch (...) {
        return false;
    }
}

}  // namespace OrbPerix
