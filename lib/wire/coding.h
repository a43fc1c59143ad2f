// Byte-level helpers of the remote-control wire format: a writer and a reader per width and
// byte order, and the single conversion of a coordinate to its 16-bit wire value. Shared by the
// library's encoder and the packet decoder below it. Pure functions, safe anywhere.
#ifndef ORBPERIX_LIB_WIRE_CODING_H_
#define ORBPERIX_LIB_WIRE_CODING_H_

#include <cmath>
#include <cstdint>

namespace OrbPerix {
namespace coding {

// REQUIRES: dst has room for 2 bytes.
inline void PutFixed16BE(uint8_t* dst, uint16_t value) {
    dst[0] = static_cast<uint8_t>(value >> 8);
    dst[1] = static_cast<uint8_t>(value);
}

// The zoom value is the protocol's one little-endian field.
inline void PutFixed16LE(uint8_t* dst, uint16_t value) {
    dst[0] = static_cast<uint8_t>(value);
    dst[1] = static_cast<uint8_t>(value >> 8);
}

// REQUIRES: dst has room for 4 bytes.
inline void PutFixed32BE(uint8_t* dst, uint32_t value) {
    dst[0] = static_cast<uint8_t>(value >> 24);
    dst[1] = static_cast<uint8_t>(value >> 16);
    dst[2] = static_cast<uint8_t>(value >> 8);
    dst[3] = static_cast<uint8_t>(value);
}

// REQUIRES: src holds 2 (or 4) bytes.
inline uint16_t GetFixed16BE(const uint8_t* src) {
    return static_cast<uint16_t>((src[0] << 8) | src[1]);
}
inline uint16_t GetFixed16LE(const uint8_t* src) {
    return static_cast<uint16_t>((src[1] << 8) | src[0]);
}
inline uint32_t GetFixed32BE(const uint8_t* src) {
    return (static_cast<uint32_t>(src[0]) << 24) | (static_cast<uint32_t>(src[1]) << 16) |
           (static_cast<uint32_t>(src[2]) << 8) | static_cast<uint32_t>(src[3]);
}

// A coordinate or value on the wire: truncated toward zero to a 32-bit signed integer (a value
// outside that range, or NaN, becomes 0), of which the low 16 bits are kept.
inline uint16_t CoordinateToWire(double value) {
    // One comparison covers every case. Values with |v| < 2^31 truncate into int32_t, so the
    // cast is defined; NaN fails the comparison. The values it also sends as 0 although they
    // are in range, (-2^31 - 1, -2^31], truncate to INT32_MIN, whose low 16 bits are 0 anyway.
    if (!(std::fabs(value) < 2147483648.0)) {
        return 0;
    }
    const int32_t whole = static_cast<int32_t>(value);
    return static_cast<uint16_t>(static_cast<uint32_t>(whole) & 0xFFFFu);
}

inline void PutCoordinate(uint8_t* dst, double value) { PutFixed16BE(dst, CoordinateToWire(value)); }

}  // namespace coding
}  // namespace OrbPerix

#endif  // ORBPERIX_LIB_WIRE_CODING_H_
