// Manager lifecycle and engine binding: loading the engine beside the executable, resolving its
// four getters, filling the handler tables, Initialize and Finalize.
//
// Runs on the host thread that calls Initialize/Finalize; the host serialises these calls.
#include <cstring>

#include "log/log.h"
#include "orbperix/manager.h"
#include "platform/platform.h"

namespace OrbPerix {
namespace {

constexpr const char* kInitializeScope = "OrbPerix::PERIXProviderManager::Initialize";
constexpr const char* kLoadScope = "OrbPerix::PERIXProviderManager::LoadPerixLibrary";
constexpr const char* kResolveScope = "OrbPerix::PERIXProviderManager::GetPerixHandlerFunc";

// Resolves one getter into `slot`; the pointer is stored before it is tested, so after a
// failure the failing getter reads null and the earlier ones stay set.
template <typename Fn>
bool ResolveGetter(void* module, const char* exportName, Fn* slot) {
    *slot = reinterpret_cast<Fn>(platform::FindSymbol(module, exportName));
    return *slot != nullptr;
}

}  // namespace

PERIXProviderManager& PERIXProviderManager::GetInstance() {
    // Built on first use under thread-safe static initialisation; destroyed at exit, which
    // finalises the engine if the host did not.
    static PERIXProviderManager instance;
    return instance;
}

PERIXProviderManager::PERIXProviderManager()
    : module(nullptr),
      perixHandlerFun(nullptr),
      orbPerixHandler(),
      isInitialized(false),
      buttonHandlerSource(),
      buttonHandlerFun(nullptr),
      audioHandlerSource(),
      audioHandlerFun(nullptr),
      refreshHandlerSource(),
      partialRefreshHandlerFun(nullptr) {}

PERIXProviderManager::~PERIXProviderManager() {
    Finalize();
}

int PERIXProviderManager::LoadPerixLibrary() {
    switch (platform::LoadModuleBesideExecutable(platform::EngineModuleFileName(), &module)) {
        case platform::LoadStep::kLoaded:
            return 0;
        case platform::LoadStep::kModuleFileName:
            log::Manager(LOG_MESSAGE_ERROR, kLoadScope, "GetModuleFileName failed");
            return -13;
        case platform::LoadStep::kRemoveFileSpec:
            log::Manager(LOG_MESSAGE_ERROR, kLoadScope, "PathRemoveFileSpec failed");
            return -13;
        case platform::LoadStep::kPathAppend:
            log::Manager(LOG_MESSAGE_ERROR, kLoadScope, "PathAppend failed");
            return -13;
        case platform::LoadStep::kLoadLibrary:
            break;
    }
    module = nullptr;
    log::Manager(LOG_MESSAGE_ERROR, kLoadScope, "LoadLibrary failed");
    return -13;
}

int PERIXProviderManager::GetPerixHandlerFunc() {
    if (!ResolveGetter(module, "PERIXGetOrbPERIXHandler", &perixHandlerFun)) {
        log::Manager(LOG_MESSAGE_ERROR, kResolveScope, "perixHandlerFun is nullptr");
        return -13;
    }
    if (!ResolveGetter(module, "PERIXGetButtonHandlerSource", &buttonHandlerFun)) {
        log::Manager(LOG_MESSAGE_ERROR, kResolveScope, "buttonHandlerFun is nullptr");
        return -13;
    }
    if (!ResolveGetter(module, "PERIXGetAudioHandlerSource", &audioHandlerFun)) {
        log::Manager(LOG_MESSAGE_ERROR, kResolveScope, "audioHandlerFun is nullptr");
        return -13;
    }
    if (!ResolveGetter(module, "PERIXGetRefreshHandlerSource", &partialRefreshHandlerFun)) {
        log::Manager(LOG_MESSAGE_ERROR, kResolveScope, "partialRefreshHandlerFun is nullptr");
        return -13;
    }
    return 0;
}

int PERIXProviderManager::Initialize(tagPERIXLogFuncGroup* logFuncs, std::string initText) {
    log::Manager(LOG_MESSAGE_INFO, kInitializeScope, "PERIXProviderManager Initalize begin.");
    if (isInitialized) {
        log::Manager(LOG_MESSAGE_ERROR, kInitializeScope,
                     "PERIXProviderManager already Initalized.");
        return -4;
    }
    int result = LoadPerixLibrary();
    if (result != 0) {
        return result;
    }
    result = GetPerixHandlerFunc();
    if (result != 0) {
        return result;
    }
    result = perixHandlerFun(&orbPerixHandler);
    if (result != 0) {
        log::Manager(LOG_MESSAGE_ERROR, kInitializeScope, "perixHandlerFun failed with ret ",
                     result);
        return result;
    }
    result = buttonHandlerFun(&buttonHandlerSource);
    if (result != 0) {
        log::Manager(LOG_MESSAGE_ERROR, kInitializeScope, "buttonHandlerFun failed with ret ",
                     result);
        return result;
    }
    result = audioHandlerFun(&audioHandlerSource);
    if (result != 0) {
        log::Manager(LOG_MESSAGE_ERROR, kInitializeScope, "audioHandlerFun failed with ret ",
                     result);
        return result;
    }
    result = partialRefreshHandlerFun(&refreshHandlerSource);
    if (result != 0) {
        // Deliberately silent: hosts have always seen only the begin line for this failure.
        return result;
    }
    // A getter that reports success but leaves an entry empty would crash us here.
    if (orbPerixHandler.PERIXLogRegister == nullptr || orbPerixHandler.PERIXInitial == nullptr) {
        log::Manager(LOG_MESSAGE_ERROR, kInitializeScope, "perixHandlerFun failed with ret ", -13);
        return -13;
    }
    result = orbPerixHandler.PERIXLogRegister(logFuncs);
    if (result != 0) {
        log::Manager(LOG_MESSAGE_ERROR, kInitializeScope, "PERIXLogRegister failed with ret ",
                     result);
        return result;
    }
    result = orbPerixHandler.PERIXInitial(initText.c_str());
    if (result != 0) {
        log::Manager(LOG_MESSAGE_ERROR, kInitializeScope, "PERIXInitial failed with ret ",
                     result);
        return result;
    }
    log::Manager(LOG_MESSAGE_INFO, kInitializeScope, "PERIXProviderManager Initalize End.");
    isInitialized = true;
    return 0;
}

bool PERIXProviderManager::IsManagerInitialized() {
    return isInitialized;
}

void PERIXProviderManager::Finalize() {
    if (!isInitialized) {
        return;
    }
    if (orbPerixHandler.PERIXRelease != nullptr) {
        orbPerixHandler.PERIXRelease();
    }
    if (module != nullptr) {
        platform::UnloadModule(module);
        module = nullptr;
    }
    isInitialized = false;
}

}  // namespace OrbPerix
