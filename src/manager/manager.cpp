// Manager lifecycle and engine binding: loading the engine (beside the executable, or where the
// host says: see engine_location.h), resolving its
// four getters, filling the handler tables, Initialize and Finalize.
//
// Runs on the host thread that calls Initialize/Finalize; the host serialises these calls.
#include <cstring>
#include <string>

#include "capture/capture.h"
#include "engine/engine_gate.h"
#include "log/log.h"
#include "manager/engine_location.h"
#include "orbperix/manager.h"
#include "platform/platform.h"
#include "util/no_destructor.h"
#include "util/result.h"

namespace OrbPerix {
namespace {

constexpr const char* kInitializeScope = "OrbPerix::PERIXProviderManager::Initialize";
constexpr const char* kLoadScope = "OrbPerix::PERIXProviderManager::LoadPerixLibrary";
constexpr const char* kResolveScope = "OrbPerix::PERIXProviderManager::GetPerixHandlerFunc";
constexpr const char* kFinalizeScope = "OrbPerix::PERIXProviderManager::Finalize";
// How long Finalize waits for calls inside the engine before it gives up unloading it.
constexpr uint32_t kDrainTimeoutMs = 10000;

// Resolves one getter into `slot`; the pointer is stored before it is tested, so after a
// failure the failing getter reads null and the earlier ones stay set.
template <typename Fn>
bool ResolveGetter(void* module, const char* exportName, Fn* slot) {
    *slot = reinterpret_cast<Fn>(platform::FindSymbol(module, exportName));
    return *slot != nullptr;
}

}  // namespace

PERIXProviderManager& PERIXProviderManager::GetInstance() {
    // Never destroyed: providers it holds, their heartbeat threads and engine threads may all
    // still run while the process exits, and nothing may call into (or unload) the engine or
    // join a thread from exit handlers or under the Windows loader lock.
    static NoDestructor<PERIXProviderManager> instance;
    return *instance;
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

PERIXProviderManager::PERIXProviderManager(const PERIXProviderManager& other) = default;
PERIXProviderManager& PERIXProviderManager::operator=(const PERIXProviderManager& other) = default;

// Never runs for the instance (see GetInstance); kept for the exported interface.
PERIXProviderManager::~PERIXProviderManager() = default;

int PERIXProviderManager::LoadPerixLibrary() {
    std::string location;
    bool hostLocation = false;
    try {
        hostLocation = engine_location::Get(&location);
    } catch (...) {
        log::Manager(LOG_MESSAGE_ERROR, kLoadScope, "engine location: out of memory");
        return kNoMemory;
    }
    platform::LoadStep step;
    // What the developer log shows of a failed load: the path tried, the step, the reason.
    const auto explain = [&](const char* failedStep, const std::string& reason) noexcept {
        if (!log::developer::On()) {
            return;
        }
        try {
            const std::string tried =
                hostLocation
                    ? location + " (the engine file, or a folder holding " +
                          platform::EngineModuleFileName() + ")"
                    : platform::ExecutableDirectory() + "/" + platform::EngineModuleFileName();
            log::Detail(LOG_MESSAGE_ERROR, kLoadScope, "engine not loaded: ", failedStep,
                        "; path tried: ", tried, "; reason: ", reason.empty() ? "-" : reason);
        } catch (...) {
            // No memory for the explanation: the logging libraries' line stands alone.
        }
    };
    if (hostLocation) {
        // The host named the engine's file or folder; the executable's folder is not tried.
        log::Manager(LOG_MESSAGE_INFO, kLoadScope, "engine location: ", location);
        step =
            platform::LoadModuleFrom(location.c_str(), platform::EngineModuleFileName(), &module);
    } else {
        step = platform::LoadModuleBesideExecutable(platform::EngineModuleFileName(), &module);
    }
    // The system's reason is read at once, before anything else can overwrite it.
    std::string reason;
    if (step == platform::LoadStep::kLoadLibrary && log::developer::On()) {
        try {
            reason = platform::LastModuleError();
        } catch (...) {
        }
    }
    switch (step) {
        case platform::LoadStep::kLoaded:
            return 0;
        case platform::LoadStep::kModuleFileName:
            log::Manager(LOG_MESSAGE_ERROR, kLoadScope, "GetModuleFileName failed");
            explain("the executable's path could not be read", "");
            return kUnavailable;
        case platform::LoadStep::kRemoveFileSpec:
            log::Manager(LOG_MESSAGE_ERROR, kLoadScope, "PathRemoveFileSpec failed");
            explain("the executable's folder could not be cut from its path", "");
            return kUnavailable;
        case platform::LoadStep::kPathAppend:
            log::Manager(LOG_MESSAGE_ERROR, kLoadScope, "PathAppend failed");
            explain("the engine's file name could not be joined to the folder", "");
            return kUnavailable;
        case platform::LoadStep::kLoadLibrary:
            break;
    }
    module = nullptr;
    log::Manager(LOG_MESSAGE_ERROR, kLoadScope, "LoadLibrary failed");
    explain("the module could not be loaded", reason);
    return kUnavailable;
}

// Resolves the engine's four getters, then lets each fill its table, in this order. Called by
// Initialize only, with the module loaded.
int PERIXProviderManager::GetPerixHandlerFunc() {
    using M = PERIXProviderManager;
    struct Getter {
        const char* exportName;
        const char* name;  // the member that holds it, as the log lines name it
        bool logsRefusal;  // the refresh getter's refusal has no line of its own
        bool (*resolve)(M& m, const char* exportName);
        int (*fill)(M& m);
    };
    static const Getter kGetters[] = {
        {"PERIXGetOrbPERIXHandler", "perixHandlerFun", true,
         [](M& m, const char* e) { return ResolveGetter(m.module, e, &m.perixHandlerFun); },
         [](M& m) { return m.perixHandlerFun(&m.orbPerixHandler); }},
        {"PERIXGetButtonHandlerSource", "buttonHandlerFun", true,
         [](M& m, const char* e) { return ResolveGetter(m.module, e, &m.buttonHandlerFun); },
         [](M& m) { return m.buttonHandlerFun(&m.buttonHandlerSource); }},
        {"PERIXGetAudioHandlerSource", "audioHandlerFun", true,
         [](M& m, const char* e) { return ResolveGetter(m.module, e, &m.audioHandlerFun); },
         [](M& m) { return m.audioHandlerFun(&m.audioHandlerSource); }},
        {"PERIXGetRefreshHandlerSource", "partialRefreshHandlerFun", false,
         [](M& m, const char* e) {
             return ResolveGetter(m.module, e, &m.partialRefreshHandlerFun);
         },
         [](M& m) { return m.partialRefreshHandlerFun(&m.refreshHandlerSource); }},
    };
    for (const Getter& getter : kGetters) {
        if (!getter.resolve(*this, getter.exportName)) {
            log::Manager(LOG_MESSAGE_ERROR, kResolveScope, getter.name, " is nullptr");
            return kUnavailable;
        }
    }
    for (const Getter& getter : kGetters) {
        const int result = getter.fill(*this);
        if (result != 0) {
            if (getter.logsRefusal) {
                log::Manager(LOG_MESSAGE_ERROR, kInitializeScope, getter.name,
                             " failed with ret ", result);
            }
            return result;
        }
    }
    return kOk;
}

int PERIXProviderManager::Initialize(tagPERIXLogFuncGroup* logFuncs, std::string initText) {
    log::developer::ConfigureFromEnvironment();
    log::Manager(LOG_MESSAGE_INFO, kInitializeScope, "PERIXProviderManager Initalize begin.");
    capture::StartFromEnvironment();
    if (isInitialized) {
        log::Manager(LOG_MESSAGE_ERROR, kInitializeScope,
                     "PERIXProviderManager already Initalized.");
        return kWrongState;
    }
    // The record the engine's tables will be published in, taken before the engine is touched
    // so that a successful initialisation cannot fail afterwards.
    if (!engine::Reserve()) {
        log::Manager(LOG_MESSAGE_ERROR, kInitializeScope, "PERIXProviderManager Initalize failed: out of memory");
        return kNoMemory;
    }
    int result = LoadPerixLibrary();
    if (result != 0) {
        return result;
    }
    result = GetPerixHandlerFunc();
    if (result != 0) {
        return result;
    }
    // A getter that reports success but leaves an entry empty would crash us here.
    if (orbPerixHandler.PERIXLogRegister == nullptr || orbPerixHandler.PERIXInitial == nullptr) {
        log::Manager(LOG_MESSAGE_ERROR, kInitializeScope, "perixHandlerFun failed with ret ", -13);
        return kUnavailable;
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
    engine::Publish(orbPerixHandler, buttonHandlerSource, audioHandlerSource, refreshHandlerSource);
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
    isInitialized = false;
    // The capture ends with the session it recorded (flushed and closed).
    capture::Stop();
    // From here on no call enters the engine; the ones inside it finish before it goes.
    if (!engine::CloseAndDrain(kDrainTimeoutMs)) {
        // The engine is still running code of a call (possibly below us on this very stack):
        // releasing or unmapping it now would pull the code from under that call.
        log::Manager(LOG_MESSAGE_ERROR, kFinalizeScope,
                     "Finalize: engine still in use, not released and not unloaded");
        return;
    }
    if (orbPerixHandler.PERIXRelease != nullptr) {
        orbPerixHandler.PERIXRelease();
    }
    if (module != nullptr) {
        platform::UnloadModule(module);
        module = nullptr;
    }
}

}  // namespace OrbPerix
