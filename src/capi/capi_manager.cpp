// The C interface of the manager: initialise, finalise, and create/destroy of the three
// provider kinds. The C++ manager requires its host to serialise these calls; the wrapper does
// it for C hosts with one mutex, so C hosts may call them from any thread.
#include <mutex>
#include <utility>

#include "capi/capi_common.h"
#include "engine/engine_gate.h"
#include "log/developer_log.h"
#include "manager/engine_location.h"
#include "util/no_destructor.h"
#include "orbperix/manager.h"

namespace OrbPerix {
namespace capi {
namespace {

std::mutex& ManagerMutex() noexcept {
    static NoDestructor<std::mutex> mutex;  // usable at process exit
    return *mutex;
}

// The wrapper's serialisation of the manager's operations, which log while it is held.
struct ManagerLock {
    log::developer::HoldingLock holding;  // ends after the unlock
    std::lock_guard<std::mutex> lock{ManagerMutex()};
};

PERIXProviderManager& Manager() noexcept { return PERIXProviderManager::GetInstance(); }

// Create and destroy of one provider kind, written once.
template <typename T>
struct Registry;
template <>
struct Registry<IInputProvider> {
    static std::shared_ptr<IInputProvider> Create() { return Manager().CreateInputProvider(); }
    static bool Destroy(std::shared_ptr<IInputProvider> p) {
        return Manager().DestoryInputProvider(std::move(p));
    }
};
template <>
struct Registry<ISourceProvider> {
    static std::shared_ptr<ISourceProvider> Create() { return Manager().CreateSourceProvider(); }
    static bool Destroy(std::shared_ptr<ISourceProvider> p) {
        return Manager().DestorySourceProvider(std::move(p));
    }
};
template <>
struct Registry<ISinkProvider> {
    static std::shared_ptr<ISinkProvider> Create() { return Manager().CreateSinkProvider(); }
    static bool Destroy(std::shared_ptr<ISinkProvider> p) {
        return Manager().DestorySinkProvider(std::move(p));
    }
};

template <typename T>
uint64_t CreateProvider(const char* scope) noexcept {
    try {
        ManagerLock lock;
        std::shared_ptr<T> provider = Registry<T>::Create();
        if (!provider) {
            return 0;  // the manager's result, as in C++
        }
        const uint64_t handle = HandleTable::Instance().Add(KindOf<T>::value, provider);
        if (handle == 0) {
            Registry<T>::Destroy(std::move(provider));
            Fail(scope, ORBPERIX_C_NO_MEMORY, "no handle for the new provider (out of memory)");
        }
        return handle;
    } catch (...) {
        Fail(scope, ORBPERIX_C_NO_MEMORY, "out of memory");
        return 0;
    }
}

template <typename T>
int DestroyProvider(uint64_t handle, const char* scope) noexcept {
    // Waits (without the manager lock, which a listener of such a call may need) until no
    // other thread's call is still running on the handle.
    std::shared_ptr<T> provider =
        std::static_pointer_cast<T>(HandleTable::Instance().Remove(handle, KindOf<T>::value));
    if (!provider) {
        log::Trace(LOG_MESSAGE_ERROR, scope, "invalid handle ", handle);
        return ORBPERIX_C_BAD_HANDLE;
    }
    int result = 0;
    try {
        ManagerLock lock;
        result = Registry<T>::Destroy(provider) ? 1 : 0;
    } catch (...) {
        result = Fail(scope, -13, "unexpected exception");
    }
    // The last reference: the provider is destroyed here, on this thread, before destroy
    // returns (unless this very thread is still inside a call on it, further up its stack).
    provider.reset();
    return result;
}

}  // namespace
}  // namespace capi
}  // namespace OrbPerix

using namespace OrbPerix;
using namespace OrbPerix::capi;

extern "C" {

int orbperix_initialize(struct tagPERIXLogFuncGroup* log_funcs, const char* init_text) {
    if (init_text == nullptr) {
        return Fail(ORBPERIX_C_SCOPE(orbperix_initialize), ORBPERIX_C_INVALID_ARGUMENT,
                    "init_text is null");
    }
    try {
        ManagerLock lock;
        return Manager().Initialize(log_funcs, std::string(init_text));
    } catch (...) {
        return Fail(ORBPERIX_C_SCOPE(orbperix_initialize), ORBPERIX_C_NO_MEMORY, "out of memory");
    }
}

int orbperix_set_engine_path(const char* path) {
    const char* scope = ORBPERIX_C_SCOPE(orbperix_set_engine_path);
    try {
        ManagerLock lock;
        if (Manager().IsManagerInitialized()) {
            return Fail(scope, -4, "the engine is loaded already: the path applies before initialising");
        }
        if (engine_location::Set(path) != 0) {
            return Fail(scope, ORBPERIX_C_NO_MEMORY, "out of memory");
        }
        return 0;
    } catch (...) {
        return Fail(scope, -13, "unexpected exception");
    }
}

int orbperix_wait_for_listeners(uint32_t timeout_ms) {
    if (OrbPerix::engine::WaitForCallbacks(timeout_ms)) {
        return 0;
    }
    return Fail(ORBPERIX_C_SCOPE(orbperix_wait_for_listeners), -13,
                "listener calls still under way after the timeout");
}

int orbperix_is_initialized(void) {
    try {
        ManagerLock lock;
        return Manager().IsManagerInitialized() ? 1 : 0;
    } catch (...) {
        return 0;
    }
}

void orbperix_finalize(void) {
    try {
        ManagerLock lock;
        Manager().Finalize();
    } catch (...) {
    }
}

void orbperix_log_error(const char* where, const char* text) {
    log::Trace(LOG_MESSAGE_ERROR, where != nullptr ? where : "", text != nullptr ? text : "");
}

orbperix_input_handle orbperix_create_input_provider(void) {
    return CreateProvider<IInputProvider>(ORBPERIX_C_SCOPE(orbperix_create_input_provider));
}
orbperix_source_handle orbperix_create_source_provider(void) {
    return CreateProvider<ISourceProvider>(ORBPERIX_C_SCOPE(orbperix_create_source_provider));
}
orbperix_sink_handle orbperix_create_sink_provider(void) {
    return CreateProvider<ISinkProvider>(ORBPERIX_C_SCOPE(orbperix_create_sink_provider));
}

int orbperix_destroy_input_provider(orbperix_input_handle provider) {
    return DestroyProvider<IInputProvider>(provider,
                                           ORBPERIX_C_SCOPE(orbperix_destroy_input_provider));
}
int orbperix_destroy_source_provider(orbperix_source_handle provider) {
    return DestroyProvider<ISourceProvider>(provider,
                                            ORBPERIX_C_SCOPE(orbperix_destroy_source_provider));
}
int orbperix_destroy_sink_provider(orbperix_sink_handle provider) {
    return DestroyProvider<ISinkProvider>(provider,
                                          ORBPERIX_C_SCOPE(orbperix_destroy_sink_provider));
}

}  // extern "C"
