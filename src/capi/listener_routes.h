// Routing of the library's listener calls to C listeners.
//
// A C++ ProviderListener entry carries no user data, so each provider kind (input, source) has
// its own set of entry functions (trampolines). A trampoline finds the C listener registered for
// the device id that the notification carries, in its kind's map, copies the entry out under
// the map's lock and calls the host with no lock held. The notification's content is handed on
// unchanged as C records pointing into the library's private copy (valid during the call).
//
// Threads: host threads register and forget routes; engine threads run the trampolines.
#ifndef ORBPERIX_SRC_CAPI_LISTENER_ROUTES_H_
#define ORBPERIX_SRC_CAPI_LISTENER_ROUTES_H_

#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "orbperix/orbperix_c.h"
#include "orbperix/records.h"

namespace OrbPerix {
namespace capi {

enum class RouteKind { kInput = 0, kSource = 1 };

struct CListener {
    orbperix_listener callbacks{};
    void* userData = nullptr;
    bool present = false;
};

// One kind's routes. All operations are thread-safe and never throw (failures to store are
// reported by Exchange).
class ListenerRoutes {
public:
    static ListenerRoutes& Of(RouteKind kind) noexcept;

    // The C++ listener whose entries forward to this kind's routes: an entry is set only where
    // the C listener has one, so the library sees exactly the entries the host asked for.
    ProviderListener MakeListener(const orbperix_listener& c) const noexcept;

    // Stores `listener` for `deviceId` and returns what was stored before (present false when
    // nothing). False when it could not be stored (no memory).
    bool Exchange(const std::string& deviceId, const CListener& listener, CListener* previous);
    // Puts back what Exchange returned (a previous that was not present removes the route).
    void Restore(const std::string& deviceId, const CListener& previous) noexcept;
    void Forget(const std::string& deviceId) noexcept;
    void ForgetAll() noexcept;

    // Registrations of one kind run one at a time, so that a failed one restores exactly what
    // it replaced.
    std::mutex& RegistrationMutex() noexcept { return registration_; }

    // Copies the route of `deviceId` out; false (and one error line under `scope`) when none.
    bool Find(const std::string& deviceId, const char* scope, CListener* out) const noexcept;

private:
    explicit ListenerRoutes(RouteKind kind) noexcept : kind_(kind) {}

    const RouteKind kind_;
    mutable std::mutex mutex_;
    std::map<std::string, CListener, std::less<>> routes_;  // GUARDED_BY(mutex_)
    std::mutex registration_;
};

}  // namespace capi
}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_CAPI_LISTENER_ROUTES_H_
