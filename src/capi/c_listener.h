// The C interface's listener entries.
//
// A C++ ProviderListener entry carries no user data. The C host's listener (callbacks and
// user data) is kept in the session it was registered for, next to the C++ entries built here,
// and the library's delivery makes it current on the engine thread while it calls an entry.
// Each entry below reads that current route, turns the notification into C records pointing
// into the library's private copy (valid during the call) and calls the host with no lock
// held. A C host therefore receives exactly the notifications a C++ host with the same
// sessions would.
#ifndef ORBPERIX_SRC_CAPI_C_LISTENER_H_
#define ORBPERIX_SRC_CAPI_C_LISTENER_H_

#include "orbperix/orbperix_c.h"
#include "orbperix/records.h"

namespace OrbPerix {
namespace capi {

// The C++ listener whose entries forward to the session's C listener: an entry is set only
// where the C listener has one, so the library sees exactly the entries the host asked for.
ProviderListener MakeListener(const orbperix_listener& c) noexcept;

}  // namespace capi
}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_CAPI_C_LISTENER_H_
