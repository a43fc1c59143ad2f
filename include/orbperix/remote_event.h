// The remote-control sender: turns a RemoteCtrlEvent into a packet in a caller's buffer.
//
// RemoteEvent is a process-wide singleton. It is safe for concurrent use from any number of
// threads without external synchronisation: the packet builder it owns keeps no state, and
// each call writes only into its own buffer.
#ifndef ORBPERIX_REMOTE_EVENT_H_
#define ORBPERIX_REMOTE_EVENT_H_

#include <atomic>
#include <mutex>

#include "orbperix/export.h"
#include "orbperix/large_integer.h"
#include "orbperix/remote_ctrl_event.h"

namespace RemoteUtil {

class RemoteController;

class ORBPERIX_API RemoteEvent {
public:
    // Returns the process-wide sender, creating it on the first call (thread-safe). Never
    // destroyed: it lives until the process ends. Null only when its allocation failed; a
    // later call tries again.
    static RemoteEvent* GetInstance();

    // Encodes `event` into `buffer` and returns the packet length in bytes, or -1 (logged).
    // At most `capacity` bytes are zeroed and used for header and body; the 4-byte timestamp
    // may end up to 4 bytes past `capacity`, so the buffer must have capacity + 4 bytes.
    // `start` and `frequency` are a performance-counter reading and its frequency; the packet
    // carries the milliseconds elapsed since `start`. A null event or buffer leaves the buffer
    // untouched. Never throws.
    int SendRemoteCtrlEvent(RemoteCtrlEvent* event, unsigned char* buffer, unsigned char capacity,
                            LARGE_INTEGER start, LARGE_INTEGER frequency);

protected:
    RemoteEvent();
    ~RemoteEvent();

private:
    RemoteEvent(const RemoteEvent&) = delete;
    RemoteEvent& operator=(const RemoteEvent&) = delete;

    // Owned; null until the first successful send, then fixed for the singleton's life.
    // Published with release/acquire so that senders after the first skip the mutex.
    std::atomic<RemoteController*> remoteController;
    // Serialises only the creation of remoteController.
    std::mutex mutex;
};

}  // namespace RemoteUtil

#endif  // ORBPERIX_REMOTE_EVENT_H_
