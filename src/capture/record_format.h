// The layout of one capture record: the payload of an Enhanced Packet Block of a capture file
// (link type LINKTYPE_USER0). Shared by the writer in the library, the reader of
// orbperix-inspect and the Wireshark dissector (tools/capture/orbperix.lua), which must agree
// with the offsets below. All multi-byte fields are little-endian.
//
//   offset size field
//    0     1   version (kRecordVersion)
//    1     1   direction (Direction)
//    2     1   flags (kFlag*)
//    3     1   payload kind (PayloadKind)
//    4     4   result (signed; valid with kFlagResult)
//    8     8   thread id
//   16     8   handle (engine service handle, 0 when the operation has none)
//   24     8   duration in ns (calls into the engine and into a listener; 0 otherwise)
//   32     8   ns from the host's PostRemoteCtrlEvent to the end of this write (kFlagSincePost)
//   40     4   aux: service type, callback type or the notification's first word
//   44     4   payload length as the operation saw it
//   48     4   FNV-1a (32 bit) of the whole payload as the operation saw it
//   52     1   operation name length N
//   53     1   device id length D
//   54     1   service id length S
//   55     1   reserved (0)
//   56     2   captured payload length P
//   58     2   reserved (0)
//   60     N   operation or notification name (ASCII)
//   60+N   D   device id
//   ...    S   service id
//   ...    P   payload bytes (the first P bytes; text withheld bytes are zero)
//
// The record's time is the block's timestamp: the monotonic clock in ns (if_tsresol 9) when
// the event began.
#ifndef ORBPERIX_SRC_CAPTURE_RECORD_FORMAT_H_
#define ORBPERIX_SRC_CAPTURE_RECORD_FORMAT_H_

#include <cstddef>
#include <cstdint>

namespace OrbPerix {
namespace capture {

constexpr uint8_t kRecordVersion = 1;
constexpr size_t kRecordHeaderSize = 60;
constexpr size_t kMaxTextField = 255;        // name, device id and service id are cut here
constexpr size_t kMaxCapturedPayload = 1536;  // whole payloads are cut here (flagged)
constexpr size_t kMaxRecordSize = kRecordHeaderSize + 3 * kMaxTextField + kMaxCapturedPayload;

// pcapng link type of the records: LINKTYPE_USER0, reserved for private use.
constexpr uint16_t kLinkType = 147;

enum class Direction : uint8_t {
    kLibraryToEngine = 0,  // a call through the engine gate
    kEngineToLibrary = 1,  // a notification the engine raised
    kLibraryToHost = 2,    // a call of a host listener
};

enum class PayloadKind : uint8_t {
    kNone = 0,
    kRemoteControl = 1,  // a remote-control packet (whole)
    kHeartbeat = 2,      // the button heartbeat packet (whole)
    kButtonData = 3,     // other button-channel bytes, in either direction (whole)
    kAudio = 4,          // audio buffer (first bytes up to the capture's cap)
    kRefresh = 5,        // partial-refresh buffer (first bytes up to the cap)
    kBinary = 6,         // binary data, in either direction (first bytes up to the cap)
};

constexpr uint8_t kFlagResult = 0x01;         // the result field is set
constexpr uint8_t kFlagTruncated = 0x02;      // fewer payload bytes captured than seen
constexpr uint8_t kFlagTextWithheld = 0x04;   // typed text replaced by zero bytes
constexpr uint8_t kFlagSincePost = 0x08;      // the since-post field is set
constexpr uint8_t kFlagListenerThrew = 0x10;  // the host's listener threw

// Offsets of the fixed fields.
constexpr size_t kOffDirection = 1;
constexpr size_t kOffFlags = 2;
constexpr size_t kOffPayloadKind = 3;
constexpr size_t kOffResult = 4;
constexpr size_t kOffThread = 8;
constexpr size_t kOffHandle = 16;
constexpr size_t kOffDuration = 24;
constexpr size_t kOffSincePost = 32;
constexpr size_t kOffAux = 40;
constexpr size_t kOffPayloadLength = 44;
constexpr size_t kOffChecksum = 48;
constexpr size_t kOffNameLength = 52;
constexpr size_t kOffDeviceLength = 53;
constexpr size_t kOffServiceLength = 54;
constexpr size_t kOffCapturedLength = 56;

inline void PutLE(uint8_t* out, uint64_t value, size_t bytes) noexcept {
    for (size_t i = 0; i < bytes; ++i) {
        out[i] = static_cast<uint8_t>(value >> (8 * i));
    }
}
inline uint64_t GetLE(const uint8_t* in, size_t bytes) noexcept {
    uint64_t value = 0;
    for (size_t i = 0; i < bytes; ++i) {
        value |= static_cast<uint64_t>(in[i]) << (8 * i);
    }
    return value;
}

// FNV-1a, 32 bit: cheap, and enough to tell two buffers of one length apart in a capture.
inline uint32_t Checksum(const uint8_t* data, size_t length) noexcept {
    uint32_t hash = 2166136261u;
    for (size_t i = 0; i < length; ++i) {
        hash = (hash ^ data[i]) * 16777619u;
    }
    return hash;
}

}  // namespace capture
}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_CAPTURE_RECORD_FORMAT_H_
