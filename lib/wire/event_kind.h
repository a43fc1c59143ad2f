// The remote-event kinds: the values of RemoteCtrlEvent::type that the encoder, the post path,
// the packet decoder and the C interface switch on. Constants only.
#ifndef ORBPERIX_LIB_WIRE_EVENT_KIND_H_
#define ORBPERIX_LIB_WIRE_EVENT_KIND_H_

#include <cstdint>

namespace OrbPerix {
namespace event_kind {

enum : uint32_t {
    kTouch = 0,
    kKey = 1,
    kZoom = 2,
    kScroll = 3,
    kRotate = 4,        // no body on the wire
    kReservedKind = 5,  // no body on the wire
    kMouse = 6,
    kTextInput = 7,
    kWheel = 8,
    kVirtualKey = 9,
    kMessage = 10,      // the highest kind
};

}  // namespace event_kind
}  // namespace OrbPerix

#endif  // ORBPERIX_LIB_WIRE_EVENT_KIND_H_
