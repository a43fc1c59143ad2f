// The library's one way to write a log line.
//
// A line is a wide string stream holding a fixed message and its values. Lines of the
// manager's operations go to the tag logger (CorvusUtil's Logger, tag "VantraMirror") as they
// are, and then, with "(" scope ")" appended, to TraceKit's QxLogger; every other line goes to
// QxLogger only, with the same suffix. Every line also reaches the developer log when a host
// developer turned it on (developer_log.h).
//
// Safe to call from any thread (host, engine callback and heartbeat threads alike); no lock of
// this library is held while a sink runs. Logging never throws to its caller.
#ifndef ORBPERIX_SRC_LOG_LOG_H_
#define ORBPERIX_SRC_LOG_LOG_H_

#include <sstream>
#include <string>

#include "LogMessageLevel.h"
#include "log/developer_log.h"

namespace OrbPerix {
namespace log {

enum class Route {
    kTrace,        // QxLogger only: providers and the remote-control encoder
    kTagAndTrace,  // Logger, then QxLogger: the manager's operations
};

// Appends the line's scope and hands the finished stream to the sinks of `route`.
void Emit(Route route, LOG_MESSAGE_LEVEL level, const char* scope,
          std::basic_stringstream<wchar_t>& line) noexcept;

namespace detail {
// Narrow text is widened byte by byte through the stream, as for a narrow literal.
inline void Put(std::wostream& out, const std::string& text) { out << text.c_str(); }
template <typename T>
void Put(std::wostream& out, const T& value) {
    out << value;
}
}  // namespace detail

// Builds one line from a message and its values (integers in decimal, narrow or wide text)
// and writes it to the sinks of `route` under `scope`.
template <typename... Parts>
void Write(Route route, LOG_MESSAGE_LEVEL level, const char* scope,
           const Parts&... parts) noexcept {
    try {
        std::basic_stringstream<wchar_t> line;
        (detail::Put(line, parts), ...);
        // A stream that could not grow marks itself failed instead of throwing; a line cut
        // short is dropped, never written.
        if (!line.fail()) {
            Emit(route, level, scope, line);
        }
    } catch (...) {
        // A line that cannot be built (out of memory) is dropped: logging never fails the caller.
    }
}

// A line for the developer log only (see developer_log.h): details such as a path tried or the
// system's reason that the host installation's logging libraries do not receive. Nothing is
// built while that log is off.
template <typename... Parts>
void Detail(LOG_MESSAGE_LEVEL level, const char* scope, const Parts&... parts) noexcept {
    if (!developer::On()) {
        return;
    }
    try {
        std::basic_stringstream<wchar_t> line;
        (detail::Put(line, parts), ...);
        if (!line.fail()) {
            developer::Write(static_cast<int>(level), scope, line.str());
        }
    } catch (...) {
        // As Write: a line that cannot be built is dropped.
    }
}

// Shorthands for the two routes.
template <typename... Parts>
void Manager(LOG_MESSAGE_LEVEL level, const char* scope, const Parts&... parts) noexcept {
    Write(Route::kTagAndTrace, level, scope, parts...);
}
template <typename... Parts>
void Trace(LOG_MESSAGE_LEVEL level, const char* scope, const Parts&... parts) noexcept {
    Write(Route::kTrace, level, scope, parts...);
}

}  // namespace log
}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_LOG_LOG_H_
