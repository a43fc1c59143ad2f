// The simulated engine's module, named as the real one (liborbperix): the four exported getters
// and one trampoline per table slot, nothing else. All state and behaviour live in the core
// library (libperixsim); see sim_module_entry.h for why the slots must be defined here.
//
// Built with -fno-gnu-unique and holding no data of its own, so that the library's dlclose or
// FreeLibrary really unmaps it and a stale table entry then points at unmapped code.
#include "sim_module_entry.h"

// The getters are this module's only exports (the core's entry points are imported).
#if defined(_WIN32)
#define PERIX_SIM_MODULE_EXPORT __declspec(dllexport)
#else
#define PERIX_SIM_MODULE_EXPORT __attribute__((visibility("default")))
#endif

namespace {

// The core's table of the same type as `Table`; each trampoline looks it up on every call, so
// the module keeps no copy.
// (A variant built without one getter leaves its overload unused.)
[[maybe_unused]] const OrbPERIXHandler* Core(const OrbPERIXHandler*) {
    return perix_sim_module_main_table();
}
[[maybe_unused]] const ButtonHandlerSource* Core(const ButtonHandlerSource*) {
    return perix_sim_module_button_table();
}
[[maybe_unused]] const AudioHandlerSource* Core(const AudioHandlerSource*) {
    return perix_sim_module_audio_table();
}
[[maybe_unused]] const RefreshHandlerSource* Core(const RefreshHandlerSource*) {
    return perix_sim_module_refresh_table();
}

// One trampoline per (table, slot): a function of this module that calls the core's slot.
template <typename Table, typename Fn, Fn Table::*Slot>
struct Forward;
template <typename Table, typename R, typename... A, R (*Table::*Slot)(A...)>
struct Forward<Table, R (*)(A...), Slot> {
    static R Call(A... args) {
        return (Core(static_cast<const Table*>(nullptr))->*Slot)(args...);
    }
};

#define PERIX_SIM_TRAMPOLINE(Table, name) \
    &Forward<Table, decltype(Table::name), &Table::name>::Call,
#define PERIX_SIM_MAIN_ENTRY(slot, name, result, params) PERIX_SIM_TRAMPOLINE(OrbPERIXHandler, name)
#define PERIX_SIM_BUTTON_ENTRY(slot, name, result, params) \
    PERIX_SIM_TRAMPOLINE(ButtonHandlerSource, name)
#define PERIX_SIM_AUDIO_ENTRY(slot, name, result, params) PERIX_SIM_TRAMPOLINE(AudioHandlerSource, name)
#define PERIX_SIM_REFRESH_ENTRY(slot, name, result, params) \
    PERIX_SIM_TRAMPOLINE(RefreshHandlerSource, name)

// Reports the module's mapping to the core (load and unload counts, "is it mapped").
struct MappingReport {
    MappingReport() { perix_sim_module_attached(this); }
    ~MappingReport() { perix_sim_module_detached(); }
    MappingReport(const MappingReport&) = delete;
    MappingReport& operator=(const MappingReport&) = delete;
};
const MappingReport g_mappingReport;

}  // namespace

extern "C" {

#if !defined(PERIX_SIM_WITHOUT_MAIN_GETTER)
PERIX_SIM_MODULE_EXPORT int PERIXGetOrbPERIXHandler(OrbPERIXHandler* table) {
    const int result = perix_sim_module_getter(PERIX_SIM_MAIN, table);
    if (result == 0) {
        *table = OrbPERIXHandler{ORBPERIX_MAIN_SLOTS(PERIX_SIM_MAIN_ENTRY)};
    }
    return result;
}
#endif

#if !defined(PERIX_SIM_WITHOUT_BUTTON_GETTER)
PERIX_SIM_MODULE_EXPORT int PERIXGetButtonHandlerSource(ButtonHandlerSource* table) {
    const int result = perix_sim_module_getter(PERIX_SIM_BUTTON, table);
    if (result == 0) {
        *table = ButtonHandlerSource{ORBPERIX_BUTTON_SLOTS(PERIX_SIM_BUTTON_ENTRY)};
    }
    return result;
}
#endif

#if !defined(PERIX_SIM_WITHOUT_AUDIO_GETTER)
PERIX_SIM_MODULE_EXPORT int PERIXGetAudioHandlerSource(AudioHandlerSource* table) {
    const int result = perix_sim_module_getter(PERIX_SIM_AUDIO, table);
    if (result == 0) {
        *table = AudioHandlerSource{ORBPERIX_AUDIO_SLOTS(PERIX_SIM_AUDIO_ENTRY)};
    }
    return result;
}
#endif

#if !defined(PERIX_SIM_WITHOUT_REFRESH_GETTER)
PERIX_SIM_MODULE_EXPORT int PERIXGetRefreshHandlerSource(RefreshHandlerSource* table) {
    const int result = perix_sim_module_getter(PERIX_SIM_REFRESH, table);
    if (result == 0) {
        *table = RefreshHandlerSource{ORBPERIX_REFRESH_SLOTS(PERIX_SIM_REFRESH_ENTRY)};
    }
    return result;
}
#endif

}  // extern "C"
