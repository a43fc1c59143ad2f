// Where the manager loads the engine from: beside the executable (the default), or where the
// host says, by orbperix_set_engine_path or the environment variable ORBPERIX_ENGINE_PATH.
// The host's call wins over the environment; an empty or cleared setting changes nothing.
//
// Thread-safe (one mutex of its own); read by Initialize, written by the C interface.
#ifndef ORBPERIX_SRC_MANAGER_ENGINE_LOCATION_H_
#define ORBPERIX_SRC_MANAGER_ENGINE_LOCATION_H_

#include <string>

namespace OrbPerix {
namespace engine_location {

// The environment variable read at each initialisation when the host set no path.
constexpr const char* kEnvironmentVariable = "ORBPERIX_ENGINE_PATH";

// Sets (null or empty: clears) the host's path. 0, or -3 when the copy cannot be allocated.
int Set(const char* path) noexcept;

// The location chosen for the next load into *out; false for the default. May throw
// std::bad_alloc.
bool Get(std::string* out);

}  // namespace engine_location
}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_MANAGER_ENGINE_LOCATION_H_
