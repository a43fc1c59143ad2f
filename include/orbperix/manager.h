// PERIXProviderManager: the library's entry point.
//
// One process-wide instance (GetInstance), built on first use and never destroyed: at process
// exit the library neither calls the engine nor joins threads (a host that wants the engine
// released calls Finalize before it exits). It loads the PERIX engine
// from the directory of the running executable, binds its four handler tables, initialises and
// finalises it, creates and keeps the providers, and forwards to the casting engine.
//
// REQUIRES: the host serialises Initialize, Finalize and the create and destroy operations
// (call them from one thread); the manager has no lock of its own. Only GetInstance is safe to
// call from several threads at once.
#ifndef ORBPERIX_MANAGER_H_
#define ORBPERIX_MANAGER_H_

#include <memory>
#include <set>
#include <string>

#include "orbperix/cast.h"
#include "orbperix/engine_tables.h"
#include "orbperix/export.h"
#include "orbperix/providers.h"

namespace OrbPerix {

template <typename T>
class NoDestructor;

class ORBPERIX_API PERIXProviderManager {
public:
    static PERIXProviderManager& GetInstance();

    // Member-wise copies, as the compiler generates them, defined in the library so that they
    // are part of its exported interface. Nothing in the library uses them; a copy is not the
    // instance and owns nothing of the engine.
    PERIXProviderManager(const PERIXProviderManager& other);
    PERIXProviderManager& operator=(const PERIXProviderManager& other);

    // Loads and initialises the engine. 0 on success; -4 when already initialised; -13 when
    // the engine library or one of its getters is missing; otherwise the engine's own result
    // of a getter, PERIXLogRegister or PERIXInitial. After a failure the manager stays
    // uninitialised; a library already loaded stays loaded. `logFuncs` goes to the engine as
    // it is (null included).
    int Initialize(tagPERIXLogFuncGroup* logFuncs, std::string initText);
    bool IsManagerInitialized();
    // Releases the engine and unloads it; nothing when not initialised. Calls already inside
    // the engine finish first; afterwards every provider operation that would reach the
    // engine returns -13 (providers may be used, and destroyed, at any time). Called from a
    // listener while the engine is on the calling thread's stack, or with calls stuck in the
    // engine, it closes the engine to the library without unloading it.
    void Finalize();

    // Create a provider and keep one reference to it until the matching destroy call.
    // Providers receive copies of the engine's entries as they are at this moment.
    std::shared_ptr<ISinkProvider> CreateSinkProvider();
    std::shared_ptr<ISourceProvider> CreateSourceProvider();
    std::shared_ptr<IInputProvider> CreateInputProvider();
    // Drop the manager's reference; false for an empty or unknown provider. They neither
    // disconnect nor de-initialise the provider.
    bool DestorySinkProvider(std::shared_ptr<ISinkProvider> provider);
    bool DestorySourceProvider(std::shared_ptr<ISourceProvider> provider);
    bool DestoryInputProvider(std::shared_ptr<IInputProvider> provider);

    // Casting engine bridge. InitCastEngine returns 1 for success and 0 for failure;
    // SetCastEngineLocalDevice always returns 0.
    int InitCastEngine(std::shared_ptr<ICastServiceListener> listener);
    int SetCastEngineLocalDevice(const CastLocalDevice& device);
    std::shared_ptr<ICastSession> CreateCastSession(const CastSessionProperty& property);
    bool DestroyCastSession(std::shared_ptr<ICastSession> session);

private:
    friend class NoDestructor<PERIXProviderManager>;
    PERIXProviderManager();
    ~PERIXProviderManager();

    int LoadPerixLibrary();
    int GetPerixHandlerFunc();

    std::set<std::shared_ptr<ISinkProvider>> sinkProviders;
    std::set<std::shared_ptr<ISourceProvider>> sourceProviders;
    std::set<std::shared_ptr<IInputProvider>> inputProviders;
    void* module;
    PerixGetOrbPERIXHandlerFn perixHandlerFun;
    OrbPERIXHandler orbPerixHandler;
    bool isInitialized;
    ButtonHandlerSource buttonHandlerSource;
    PerixGetButtonHandlerSourceFn buttonHandlerFun;
    AudioHandlerSource audioHandlerSource;
    PerixGetAudioHandlerSourceFn audioHandlerFun;
    RefreshHandlerSource refreshHandlerSource;
    PerixGetRefreshHandlerSourceFn partialRefreshHandlerFun;
};

}  // namespace OrbPerix

#endif  // ORBPERIX_MANAGER_H_
