// What the input and source providers share besides their session code: the device-record
// check, the forwarding of the engine's three general callbacks to the host's listeners, and the
// audio type conversions. Free functions without state; the forwarders take the calling kind's
// session store explicitly.
//
// The forwarders run on engine threads; they copy what they need out of the store under the
// store's lock and call the host's listener with no lock held. They treat the engine's record as
// untrusted and keep everything a listener throws on this side.
#ifndef ORBPERIX_SRC_PROVIDER_PROVIDER_COMMON_H_
#define ORBPERIX_SRC_PROVIDER_PROVIDER_COMMON_H_

#include <cstdint>
#include <string>

#include "orbperix/engine_tables.h"
#include "orbperix/records.h"

namespace OrbPerix {

class SessionStore;

// 0 when `deviceInfo` may be passed to the engine, -2 (logged) otherwise. Identifier
// contents are deliberately not examined: the engine validates them itself.
int CheckPerixInfo(const PERIXInfo* deviceInfo);

// Engine-thread forwarders: find the session whose service handle is `handle` (first in key
// order) and call its listener entry 0, 1 or 2 with a private copy of the notification,
// destroyed when the listener returns. A malformed record (a null text or buffer with a
// length, a length above the limits of delivery.h) is logged and dropped.
void ForwardDeviceChange(SessionStore& sessions, void* handle,
                         const PerixDeviceChangeNotify* notify) noexcept;
void ForwardServiceChange(SessionStore& sessions, void* handle,
                          const PerixServiceChangeNotify* notify) noexcept;
void ForwardDataReceive(SessionStore& sessions, void* handle, const BinaryData* data) noexcept;

// Host audio device type -> engine device type; unknown types log and give 3.
uint32_t ConvertAudioDeviceType(uint32_t type);
// Engine service type -> host service type; unknown types log and give 0.
uint32_t ConvertAudioServiceType(uint32_t type);

}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_PROVIDER_PROVIDER_COMMON_H_
