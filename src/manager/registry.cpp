// Provider registry: creates the three kinds of provider with copies of the engine's entries,
// keeps one reference to each until the matching destroy call.
//
// REQUIRES: the host serialises these calls (no lock); engine threads never touch the
// registries.
#include <new>
#include <set>

#include "engine/engine_gate.h"
#include "log/log.h"
#include "orbperix/manager.h"
#include "provider/input_provider.h"
#include "provider/sink_provider.h"
#include "provider/source_provider.h"

namespace OrbPerix {
namespace {

// Builds a provider bound to the engine load that is live now (or to "no engine", whose calls
// all return -13) and registers it. Out of memory gives an empty pointer and one error line:
// no exception leaves the library. A provider built but not registered is destroyed here.
template <typename Concrete, typename Interface>
std::shared_ptr<Interface> CreateProvider(std::set<std::shared_ptr<Interface>>& registry,
                                          const char* scope, const char* createdMessage,
                                          const char* failedMessage) noexcept {
    std::shared_ptr<Interface> provider;
    try {
        provider = std::make_shared<Concrete>(engine::Current());
        registry.insert(provider);
    } catch (...) {
        provider.reset();
        log::Manager(LOG_MESSAGE_ERROR, scope, failedMessage);
        return nullptr;
    }
    log::Manager(LOG_MESSAGE_INFO, scope, createdMessage, registry.size());
    return provider;
}

// Drops the registry's reference to `provider`; false, after the entry line only, for an
// empty or unknown provider.
template <typename Interface>
bool DestroyProvider(std::set<std::shared_ptr<Interface>>& registry,
                     const std::shared_ptr<Interface>& provider, const char* scope,
                     const char* entryMessage, const char* destroyedMessage) noexcept {
    log::Manager(LOG_MESSAGE_INFO, scope, entryMessage);
    if (!provider) {
        return false;
    }
    auto found = registry.find(provider);
    if (found == registry.end()) {
        return false;
    }
    registry.erase(found);
    log::Manager(LOG_MESSAGE_INFO, scope, destroyedMessage, registry.size());
    return true;
}

}  // namespace

std::shared_ptr<ISinkProvider> PERIXProviderManager::CreateSinkProvider() {
    return CreateProvider<SinkProvider>(sinkProviders,
                                        "OrbPerix::PERIXProviderManager::CreateSinkProvider",
                                        "Create SinkProvider success, sinkProvider count = ",
                                        "Create SinkProvider failed: out of memory");
}

std::shared_ptr<ISourceProvider> PERIXProviderManager::CreateSourceProvider() {
    return CreateProvider<SourceProvider>(
        sourceProviders, "OrbPerix::PERIXProviderManager::CreateSourceProvider",
        "Create SourceProvider success, SourceProvider count = ",
        "Create SourceProvider failed: out of memory");
}

std::shared_ptr<IInputProvider> PERIXProviderManager::CreateInputProvider() {
    return CreateProvider<InputProvider>(inputProviders,
                                         "OrbPerix::PERIXProviderManager::CreateInputProvider",
                                         "Create InputProvider success, InputProvider count = ",
                                         "Create InputProvider failed: out of memory");
}

// The sink's texts say "Destroy" while the operation and the other kinds say "Destory":
// hosts match these lines letter for letter.
bool PERIXProviderManager::DestorySinkProvider(std::shared_ptr<ISinkProvider> provider) {
    return DestroyProvider(sinkProviders, provider,
                           "OrbPerix::PERIXProviderManager::DestorySinkProvider",
                           "DestroySinkProvider in",
                           "DestroySinkProvider success, SinkProvider count = ");
}

bool PERIXProviderManager::DestorySourceProvider(std::shared_ptr<ISourceProvider> provider) {
    return DestroyProvider(sourceProviders, provider,
                           "OrbPerix::PERIXProviderManager::DestorySourceProvider",
                           "DestorySourceProvider in",
                           "DestorySourceProvider success, SourceProvider count = ");
}

bool PERIXProviderManager::DestoryInputProvider(std::shared_ptr<IInputProvider> provider) {
    return DestroyProvider(inputProviders, provider,
                           "OrbPerix::PERIXProviderManager::DestoryInputProvider",
                           "DestoryInputProvider in",
                           "DestoryInputProvider success, InputProvider count = ");
}

}  // namespace OrbPerix
