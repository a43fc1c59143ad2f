// What the core knows of the thin engine module (liborbperix): how often it was mapped and
// unmapped, and whether it is mapped now. The module reports itself from a static object.
#include <atomic>
#include <mutex>
#include <string>

#include "sim_module_entry.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace {

struct ModuleState {
    std::atomic<int> loads{0};
    std::atomic<int> unloads{0};
    std::mutex mutex;
    std::string path;  // the module's path as the loader knows it (Linux)
};

ModuleState& M() {
    static ModuleState* state = new ModuleState();  // never destroyed, see sim_engine.cpp
    return *state;
}

}  // namespace

extern "C" {

void perix_sim_module_attached(const void* address) {
    M().loads.fetch_add(1);
#if !defined(_WIN32)
    Dl_info info{};
    if (dladdr(address, &info) != 0 && info.dli_fname != nullptr) {
        std::lock_guard<std::mutex> lock(M().mutex);
        M().path = info.dli_fname;
    }
#else
    (void)address;
#endif
}

void perix_sim_module_detached(void) { M().unloads.fetch_add(1); }

int perix_sim_module_loads(void) { return M().loads.load(); }

int perix_sim_module_unloads(void) { return M().unloads.load(); }

int perix_sim_engine_mapped(void) {
#if defined(_WIN32)
    return GetModuleHandleW(L"liborbperix.dll") != nullptr ? 1 : 0;
#else
    std::string path;
    {
        std::lock_guard<std::mutex> lock(M().mutex);
        path = M().path;
    }
    if (path.empty()) {
        return 0;  // never loaded
    }
    // RTLD_NOLOAD finds the module only while it is mapped, and never maps it.
    void* module = dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (module == nullptr) {
        return 0;
    }
    dlclose(module);
    return 1;
#endif
}

}  // extern "C"
