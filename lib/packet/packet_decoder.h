// Decoder of remote-control packets: the inverse of the library's encoders, for tools, tests
// and the simulated peer. Not part of OrbPerixProvider.
//
// DecodePacket is a pure function; safe from any thread.
#ifndef ORBPERIX_LIB_PACKET_PACKET_DECODER_H_
#define ORBPERIX_LIB_PACKET_PACKET_DECODER_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace OrbPerix {
namespace packet {

// What a packet encodes, by event kind (RemoteCtrlEvent::type) and action.
enum class Kind {
    kTouch,       // type 0
    kKey,         // type 1
    kZoom,        // type 2
    kScroll,      // type 3
    kMouse,       // type 6
    kInputContent,// type 7, action 0
    kInputFocus,  // type 7, action 1
    kWheel,       // type 8
    kVirtualKey,  // type 9
    kMessage,     // type 10
};

struct TouchPointer {
    uint8_t id;
    uint16_t x;  // wire values: low 16 bits of the truncated coordinate
    uint16_t y;
};

// One decoded packet. Only the fields of `kind` are meaningful; the others stay zero/empty.
// Coordinates and values keep their 16-bit wire form.
struct DecodedPacket {
    // Header.
    uint8_t flags = 0;            // byte 0 as sent (only bits 0x08, 0x04, 0x02 may be set)
    uint32_t headerFlags = 0;     // the event's headerFlags bits these stand for (0x08/0x20/0x40)
    uint8_t packetClass = 0;      // byte 1
    uint16_t length = 0;          // bytes 2-3, equal to the packet size
    uint8_t tag = 0;              // byte 4
    // Body head.
    uint8_t code = 0;
    uint16_t bodyLength = 0;
    Kind kind = Kind::kTouch;
    uint32_t type = 0;            // the RemoteCtrlEvent type this kind comes from
    uint32_t action = 0;          // the event action (0 for zoom, which has none)
    std::string name;             // event name, e.g. "mouse_down"

    // Fields by kind.
    std::vector<TouchPointer> pointers;      // touch: pointerCount entries
    uint16_t keyValue1 = 0, keyValue2 = 0;   // key
    uint32_t keyValue3 = 0;
    uint16_t x = 0, y = 0;                   // zoom, wheel, virtual key
    uint16_t zoomValue = 0;                  // zoom (sent low byte first)
    uint16_t scrollValue = 0;                // scroll
    uint8_t button = 0;                      // mouse button
    uint16_t values[4] = {0, 0, 0, 0};       // mouse coords, focus values
    uint8_t focusFlag = 0;                   // focus
    uint8_t wireButtons = 0;                 // wheel: byte as sent
    uint8_t buttons = 0;                     // wheel: the event's bits 0..2 it stands for
    uint16_t wheelValue = 0;                 // wheel
    uint16_t messageWord = 0;                // message
    std::vector<uint8_t> data;               // text content, message data

    // Trailer.
    uint32_t timestampMs = 0;
    bool padded = false;          // one zero padding byte follows the timestamp
};

// Parses `size` bytes as one packet. Returns true and fills *out, or returns false and puts a
// one-line reason into *reason (when not null): length field not matching the bytes, odd
// length, truncated packet or body, unknown flag bits, class or body code, body length field
// inconsistent with the kind, non-zero reserved or padding bytes.
bool DecodePacket(const uint8_t* data, size_t size, DecodedPacket* out, std::string* reason);

// One line for a person, e.g.
// "mouse_down button=1 coords=(100,200,0,0) ts=1234ms [len=26 class=0 tag=0x00 flags=0x00]".
// Coordinates print as signed 16-bit values.
std::string Describe(const DecodedPacket& packet);

}  // namespace packet
}  // namespace OrbPerix

#endif  // ORBPERIX_LIB_PACKET_PACKET_DECODER_H_
