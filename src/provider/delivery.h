// What every path from an engine thread to a host listener shares: the checks of the engine's
// records (untrusted input), the call of the listener with everything it may throw kept on
// this side, and the C route of the session being delivered.
//
// Runs on engine threads. No lock of this library is held while a listener runs.
#ifndef ORBPERIX_SRC_PROVIDER_DELIVERY_H_
#define ORBPERIX_SRC_PROVIDER_DELIVERY_H_

#include <cstdint>
#include <string_view>

#include "capture/capture.h"
#include "provider/session_store.h"
#include "util/result.h"

namespace OrbPerix {

// Limits on what an engine record may claim. Identifiers are short texts; payloads (button,
// data, audio, refresh) are bounded well above any real buffer. A record beyond them is taken
// as corrupt rather than copied.
constexpr uint32_t kMaxEngineTextLength = 4096;
constexpr uint32_t kMaxEnginePayloadLength = 64u * 1024u * 1024u;

// Result of a notification whose record is malformed, or whose listener threw.
constexpr int kMalformedRecord = kInvalidArgument;
constexpr int kListenerFailed = kUnavailable;

// The engine's text: pointer and length; a null pointer reads as empty.
inline std::string_view EngineText(const char* text, uint32_t length) noexcept {
    return text != nullptr ? std::string_view(text, length) : std::string_view();
}

// True when (`data`, `length`) may be read: not a null pointer with a length, and a length
// within `limit`. Otherwise logs one line under `scope` ("<event>, <field> ...") and is false.
bool CheckEngineBytes(const char* scope, const char* event, const char* field, const void* data,
                      uint32_t length, uint32_t limit) noexcept;
inline bool CheckEngineText(const char* scope, const char* event, const char* field,
                            const char* text, uint32_t length) noexcept {
    return CheckEngineBytes(scope, event, field, text, length, kMaxEngineTextLength);
}

// Logs that a notification was dropped for lack of memory.
void LogNoMemory(const char* scope, const char* event) noexcept;

// The C route of the session whose notification is being delivered on this thread (null
// outside a delivery). The C interface's listener entries read it to find their host.
const HostRoute* CurrentRoute() noexcept;

namespace detail {
class RouteScope {
public:
    explicit RouteScope(const HostRoute* route) noexcept;
    ~RouteScope();
    RouteScope(const RouteScope&) = delete;
    RouteScope& operator=(const RouteScope&) = delete;

private:
    const HostRoute* previous_;
};
void LogListenerThrew(const char* scope, const char* event) noexcept;
}  // namespace detail

// Runs `call` (which calls the host's listener) with `route` as the current C route. False
// when the listener threw: that is logged once under `scope` and goes no further.
template <typename Call>
bool CallListener(const char* scope, const char* event, const HostRoute& route,
                  Call&& call) noexcept {
    detail::RouteScope current(&route);
    const uint64_t captureStart = capture::On() ? capture::Now() : 0;
    try {
        call();
        if (captureStart != 0) {
            capture::Listener(event, captureStart, false);
        }
        return true;
    } catch (...) {
        detail::LogListenerThrew(scope, event);
        if (captureStart != 0) {
            capture::Listener(event, captureStart, true);
        }
        return false;
    }
}

}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_PROVIDER_DELIVERY_H_
