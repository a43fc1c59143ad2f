// The library's own result codes. Providers, the manager and the C interface return these as
// int; any other non-zero value a provider returns is the engine's own result, passed on.
#ifndef ORBPERIX_SRC_UTIL_RESULT_H_
#define ORBPERIX_SRC_UTIL_RESULT_H_

namespace OrbPerix {

// Unscoped on purpose: every operation's signature returns int, and the codes convert to it.
enum Result : int {
    kOk = 0,
    kEncodeFailed = -1,      // the remote-control encoder refused the event
    kInvalidArgument = -2,   // null or malformed argument, or the wrong service type
    kNoMemory = -3,
    kWrongState = -4,        // not initialised, already initialised, not connected, ...
    kZeroServerPort = -5,    // a sink record with server port 0
    kKeyCopyFailed = -9,     // the session key could not be copied
    kUnavailable = -13,      // engine, handle, session or copy not available
};

}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_UTIL_RESULT_H_
