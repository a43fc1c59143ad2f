// What every provider shares: the device-information check, the forwarding of the engine's
// three general callbacks to the host's listeners, and the audio type conversions.
//
// BaseProvider has no state and no virtual operations; its operations are static and take the
// calling provider kind's session store explicitly. The forwarders run on engine threads; they
// copy what they need out of the store under the store's lock and call the host's listener
// with no lock held.
#ifndef ORBPERIX_SRC_PROVIDER_BASE_PROVIDER_H_
#define ORBPERIX_SRC_PROVIDER_BASE_PROVIDER_H_

#include <cstdint>
#include <string>

#include "orbperix/engine_tables.h"
#include "orbperix/records.h"

namespace OrbPerix {

class SessionStore;

// One peer's session, owned by its provider kind's SessionStore. Only the store's owner
// (under the store's lock) touches a record; other threads work on copies.
struct PerixSessionInfo {
    std::string deviceId;         // the peer device id (key of the store)
    std::string serviceId;        // set by the input provider's OpenButton
    int32_t serverPort = -1;      // -1 = not connected; set by ConnectDevice
    uint8_t sessionKey[128] = {}; // copied on connect, zeroed before the record is freed
    void* serviceHandle = nullptr;
    ProviderListener listener = {};
};

class BaseProvider {
public:
    // 0 when `deviceInfo` may be passed to the engine, -2 (logged) otherwise. Identifier
    // contents are deliberately not examined: the engine validates them itself.
    static int CheckPerixInfoInner(const PERIXInfo* deviceInfo);

    // Engine-thread forwarders: find the session whose service handle is `handle` (first in key
    // order) and call its listener entry 0, 1 or 2 with a private copy of the notification,
    // destroyed when the listener returns.
    static void DeviceChange(SessionStore& sessions, void* handle,
                             const PerixDeviceChangeNotify* notify);
    static void DeviceServiceChange(SessionStore& sessions, void* handle,
                                    const PerixServiceChangeNotify* notify);
    static void DataReceive(SessionStore& sessions, void* handle, const BinaryData* data);

    // Host audio device type -> engine device type; unknown types log and give 3.
    static uint32_t ConvertAudioDeviceType(uint32_t type);
    // Engine service type -> host service type; unknown types log and give 0.
    static uint32_t ConvertAudioServiceType(uint32_t type);
};

}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_PROVIDER_BASE_PROVIDER_H_
