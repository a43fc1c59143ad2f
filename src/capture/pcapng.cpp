#include "capture/pcapng.h"

#include <cstdio>
#include <cstring>

#include "capture/record_format.h"

namespace OrbPerix {
namespace capture {
namespace {

constexpr size_t Pad4(size_t n) noexcept { return (n + 3) & ~static_cast<size_t>(3); }

// Appends fields to a block and closes it with the repeated total length.
class BlockWriter {
public:
    BlockWriter(uint8_t* out, size_t capacity, uint32_t type) noexcept
        : out_(out), capacity_(capacity) {
        U32(type);
        U32(0);  // total length, filled in by Finish
    }
    void U16(uint16_t value) noexcept { Put(value, 2); }
    void U32(uint32_t value) noexcept { Put(value, 4); }
    void U64(uint64_t value) noexcept { Put(value, 8); }
    // A timestamp as pcapng stores it: high word first, each word in the section's order.
    void Time(uint64_t ns) noexcept {
        U32(static_cast<uint32_t>(ns >> 32));
        U32(static_cast<uint32_t>(ns));
    }
    void Bytes(const void* data, size_t length) noexcept {
        if (Room(Pad4(length))) {
            std::memcpy(out_ + size_, data, length);
            std::memset(out_ + size_ + length, 0, Pad4(length) - length);
            size_ += Pad4(length);
        }
    }
    void Option(uint16_t code, const void* value, size_t length) noexcept {
        U16(code);
        U16(static_cast<uint16_t>(length));
        Bytes(value, length);
    }
    void OptionText(uint16_t code, const char* text) noexcept {
        Option(code, text, std::strlen(text));
    }
    void OptionU64(uint16_t code, uint64_t value) noexcept {
        U16(code);
        U16(8);
        U64(value);
    }
    void OptionTime(uint16_t code, uint64_t ns) noexcept {
        U16(code);
        U16(8);
        Time(ns);
    }
    size_t Finish() noexcept {
        U32(0);  // placeholder for the trailing length
        if (failed_) {
            return 0;
        }
        PutLE(out_ + 4, size_, 4);
        PutLE(out_ + size_ - 4, size_, 4);
        return size_;
    }

private:
    bool Room(size_t n) noexcept {
        if (failed_ || capacity_ - size_ < n || size_ > capacity_) {
            failed_ = true;
            return false;
        }
        return true;
    }
    void Put(uint64_t value, size_t bytes) noexcept {
        if (Room(bytes)) {
            PutLE(out_ + size_, value, bytes);
            size_ += bytes;
        }
    }

    uint8_t* out_;
    size_t capacity_;
    size_t size_ = 0;
    bool failed_ = false;
};

}  // namespace

size_t BuildSectionHeader(uint8_t* out, size_t capacity, const char* application) noexcept {
    BlockWriter block(out, capacity, kSectionHeaderType);
    block.U32(kByteOrderMagic);
    block.U16(1);                 // major version
    block.U16(0);                 // minor version
    block.U64(~uint64_t{0});      // section length not known in advance
    block.OptionText(kOptShbApplication, application);
    block.U32(kOptEnd);
    return block.Finish();
}

size_t BuildInterfaceDescription(uint8_t* out, size_t capacity, uint16_t linkType,
                                 const char* name) noexcept {
    BlockWriter block(out, capacity, kInterfaceDescriptionType);
    block.U16(linkType);
    block.U16(0);     // reserved
    block.U32(0);     // no snap length
    block.OptionText(kOptIfName, name);
    const uint8_t nanoseconds = 9;
    block.Option(kOptIfTsResol, &nanoseconds, 1);
    block.U32(kOptEnd);
    return block.Finish();
}

size_t BuildEnhancedPacket(uint8_t* out, size_t capacity, uint64_t timeNs, const uint8_t* data,
                           uint32_t length) noexcept {
    BlockWriter block(out, capacity, kEnhancedPacketType);
    block.U32(0);  // interface 0
    block.Time(timeNs);
    block.U32(length);  // captured
    block.U32(length);  // original
    block.Bytes(data, length);
    return block.Finish();
}

size_t BuildInterfaceStatistics(uint8_t* out, size_t capacity, uint64_t startNs, uint64_t endNs,
                                uint64_t written, uint64_t dropped) noexcept {
    BlockWriter block(out, capacity, kInterfaceStatisticsType);
    block.U32(0);  // interface 0
    block.Time(endNs);
    char comment[96];
    std::snprintf(comment, sizeof(comment), "records written %llu, dropped %llu",
                  static_cast<unsigned long long>(written),
                  static_cast<unsigned long long>(dropped));
    block.OptionText(kOptComment, comment);
    block.OptionTime(kOptIsbStartTime, startNs);
    block.OptionTime(kOptIsbEndTime, endNs);
    block.OptionU64(kOptIsbIfRecv, written + dropped);
    block.OptionU64(kOptIsbIfDrop, dropped);
    block.OptionU64(kOptIsbUsrDeliv, written);
    block.U32(kOptEnd);
    return block.Finish();
}

}  // namespace capture
}  // namespace OrbPerix
