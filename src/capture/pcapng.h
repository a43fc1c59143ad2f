// pcapng blocks of a capture file: a Section Header Block naming the library, one Interface
// Description Block (LINKTYPE_USER0, nanosecond timestamps), Enhanced Packet Blocks with the
// records, and an Interface Statistics Block at the end. Written in the machine's byte order
// (little-endian on every platform we build for), as the format allows; readers go by the
// byte-order magic.
//
// Each builder writes one whole block into `out` and returns its size, or 0 when `capacity` is
// too small. Pure functions; safe from any thread.
#ifndef ORBPERIX_SRC_CAPTURE_PCAPNG_H_
#define ORBPERIX_SRC_CAPTURE_PCAPNG_H_

#include <cstddef>
#include <cstdint>

namespace OrbPerix {
namespace capture {

constexpr uint32_t kSectionHeaderType = 0x0A0D0D0A;
constexpr uint32_t kInterfaceDescriptionType = 1;
constexpr uint32_t kEnhancedPacketType = 6;
constexpr uint32_t kInterfaceStatisticsType = 5;
constexpr uint32_t kByteOrderMagic = 0x1A2B3C4D;

// Option codes used here.
constexpr uint16_t kOptEnd = 0;
constexpr uint16_t kOptComment = 1;
constexpr uint16_t kOptShbApplication = 4;  // shb_userappl
constexpr uint16_t kOptIfName = 2;          // if_name
constexpr uint16_t kOptIfTsResol = 9;       // if_tsresol
constexpr uint16_t kOptIsbStartTime = 2;    // isb_starttime
constexpr uint16_t kOptIsbEndTime = 3;      // isb_endtime
constexpr uint16_t kOptIsbIfRecv = 4;       // isb_ifrecv: records offered
constexpr uint16_t kOptIsbIfDrop = 5;       // isb_ifdrop: records dropped
constexpr uint16_t kOptIsbUsrDeliv = 8;     // isb_usrdeliv: records written

size_t BuildSectionHeader(uint8_t* out, size_t capacity, const char* application) noexcept;
size_t BuildInterfaceDescription(uint8_t* out, size_t capacity, uint16_t linkType,
                                 const char* name) noexcept;
size_t BuildEnhancedPacket(uint8_t* out, size_t capacity, uint64_t timeNs, const uint8_t* data,
                           uint32_t length) noexcept;
size_t BuildInterfaceStatistics(uint8_t* out, size_t capacity, uint64_t startNs, uint64_t endNs,
                                uint64_t written, uint64_t dropped) noexcept;

}  // namespace capture
}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_CAPTURE_PCAPNG_H_
