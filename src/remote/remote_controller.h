// The packet builder behind RemoteEvent: one encoder per event kind plus the framing that puts
// the 10-byte header in front of the body and the timestamp and padding behind it.
//
// Stateless and reentrant: any number of threads may build packets at once into distinct
// buffers. Nothing here allocates or throws; every failure is one log line and -1.
#ifndef ORBPERIX_SRC_REMOTE_REMOTE_CONTROLLER_H_
#define ORBPERIX_SRC_REMOTE_REMOTE_CONTROLLER_H_

#include <cstdint>

#include "orbperix/large_integer.h"
#include "orbperix/remote_ctrl_event.h"

namespace RemoteUtil {

class RemoteController {
public:
    // Bytes in front of the body: flags, class, length (2), tag, 5 reserved.
    static constexpr uint16_t kHeaderSize = 10;

    // Zeroes buffer[0, capacity) and builds the whole packet there. Returns its length (even),
    // or -1. On success the timestamp may extend up to 4 bytes past `capacity`; on failure
    // the buffer holds zeros or a partly written body. A capacity of at most kHeaderSize
    // leaves no room for a body and fails every kind.
    int ConstructRemoteCtrlPacket(const RemoteCtrlEvent* event, uint8_t* buffer,
                                  uint16_t capacity, LARGE_INTEGER start,
                                  LARGE_INTEGER frequency) const;

    // Builds the body for the event's kind at `body` and appends timestamp and padding.
    // Returns the body length including both, or -1 / 0 on failure.
    int ConstructInputBody(const RemoteCtrlEvent* event, uint8_t* body, uint16_t bodyCapacity,
                           LARGE_INTEGER start, LARGE_INTEGER frequency) const;

    // Body encoders: each writes code, body length and the kind's fields into a zero-filled
    // body of bodyCapacity bytes and returns the body bytes it accounts for, or -1. All checks
    // come before the first write.
    int ConstructTouchEvent(const RemoteCtrlEvent* event, uint8_t* body,
                            uint16_t bodyCapacity) const;
    int ConstructKeyEvent(const RemoteCtrlEvent* event, uint8_t* body,
                          uint16_t bodyCapacity) const;
    int ConstructZoomEvent(const RemoteCtrlEvent* event, uint8_t* body,
                           uint16_t bodyCapacity) const;
    int ConstructScrollEvent(const RemoteCtrlEvent* event, uint8_t* body,
                             uint16_t bodyCapacity) const;
    int ConstructMouseEvent(const RemoteCtrlEvent* event, uint8_t* body,
                            uint16_t bodyCapacity) const;
    int ConstructInputEvent(const RemoteCtrlEvent* event, uint8_t* body,
                            uint16_t bodyCapacity) const;
    int ConstructInputContentEvent(const RemoteInputEvent& input, uint8_t* body,
                                   uint16_t bodyCapacity) const;
    int ConstructInputFocusEvent(const RemoteCtrlEvent* event, uint8_t* body,
                                 uint16_t bodyCapacity) const;
    int ConstructWheelEvent(const RemoteCtrlEvent* event, uint8_t* body,
                            uint16_t bodyCapacity) const;
    int ConstructVirtualKeyEvent(const RemoteCtrlEvent* event, uint8_t* body,
                                 uint16_t bodyCapacity) const;
    int ConstructMessageEvent(const RemoteCtrlEvent* event, uint8_t* body,
                              uint16_t bodyCapacity) const;
};

}  // namespace RemoteUtil

#endif  // ORBPERIX_SRC_REMOTE_REMOTE_CONTROLLER_H_
