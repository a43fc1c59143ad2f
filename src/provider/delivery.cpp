#include "provider/delivery.h"

#include "log/log.h"

namespace OrbPerix {

namespace {
// Trivially destructible: nothing is registered for thread exit.
thread_local const HostRoute* t_route = nullptr;
}  // namespace

bool CheckEngineBytes(const char* scope, const char* event, const char* field, const void* data,
                      uint32_t length, uint32_t limit) noexcept {
    if (data == nullptr && length != 0) {
        log::Trace(LOG_MESSAGE_ERROR, scope, event, ", malformed record: ", field,
                   " is null but its length is ", length);
        return false;
    }
    if (length > limit) {
        log::Trace(LOG_MESSAGE_ERROR, scope, event, ", malformed record: ", field, " length ",
                   length, " is above the limit ", limit);
        return false;
    }
    return true;
}

void LogNoMemory(const char* scope, const char* event) noexcept {
    log::Trace(LOG_MESSAGE_ERROR, scope, event, ", no memory for the notification");
}

const HostRoute* CurrentRoute() noexcept { return t_route; }

namespace detail {

RouteScope::RouteScope(const HostRoute* route) noexcept : previous_(t_route) { t_route = route; }
RouteScope::~RouteScope() { t_route = previous_; }

void LogListenerThrew(const char* scope, const char* event) noexcept {
    log::Trace(LOG_MESSAGE_ERROR, scope, event, ", listener threw an exception");
}

}  // namespace detail
}  // namespace OrbPerix
