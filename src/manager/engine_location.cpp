#include "manager/engine_location.h"

#include <mutex>

#include "platform/platform.h"
#include "util/no_destructor.h"
#include "util/result.h"

namespace OrbPerix {
namespace engine_location {
namespace {

struct State {
    std::mutex mutex;
    std::string hostPath;  // GUARDED_BY(mutex); empty: not set
};

State& Instance() noexcept {
    static NoDestructor<State> state;  // usable at process exit
    return *state;
}

}  // namespace

int Set(const char* path) noexcept {
    State& state = Instance();
    try {
        std::string copy(path != nullptr ? path : "");
        std::lock_guard<std::mutex> lock(state.mutex);
        state.hostPath.swap(copy);
        return 0;
    } catch (...) {
        return kNoMemory;
    }
}

bool Get(std::string* out) {
    State& state = Instance();
    {
        std::lock_guard<std::mutex> lock(state.mutex);
        if (!state.hostPath.empty()) {
            *out = state.hostPath;
            return true;
        }
    }
    return platform::EnvironmentValue(kEnvironmentVariable, out) && !out->empty();
}

}  // namespace engine_location
}  // namespace OrbPerix
