// The capture file's bytes: pcapng blocks pinned byte for byte, and the reader of
// orbperix-inspect against every truncation and a sweep of corruptions of a small capture.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "capture/pcapng.h"
#include "capture/record_format.h"
#include "capture_reader.h"

namespace {

using namespace OrbPerix::capture;
using OrbPerix::capture_file::Capture;
using OrbPerix::capture_file::ReadCapture;

std::vector<uint8_t> Block(size_t (*build)(uint8_t*, size_t)) {
    std::vector<uint8_t> bytes(512);
    bytes.resize(build(bytes.data(), bytes.size()));
    return bytes;
}

// A record as the library lays it out: call "Op" on device "d" with a 2-byte payload.
std::vector<uint8_t> SampleRecord() {
    std::vector<uint8_t> r(kRecordHeaderSize, 0);
    r[0] = kRecordVersion;
    r[kOffDirection] = 0;
    r[kOffFlags] = kFlagResult;
    r[kOffPayloadKind] = static_cast<uint8_t>(PayloadKind::kButtonData);
    PutLE(&r[kOffResult], static_cast<uint32_t>(-13), 4);
    PutLE(&r[kOffThread], 77, 8);
    PutLE(&r[kOffHandle], 0x1234, 8);
    PutLE(&r[kOffDuration], 500, 8);
    PutLE(&r[kOffPayloadLength], 2, 4);
    PutLE(&r[kOffChecksum], Checksum(reinterpret_cast<const uint8_t*>("\xAB\xCD"), 2), 4);
    r[kOffNameLength] = 2;
    r[kOffDeviceLength] = 1;
    PutLE(&r[kOffCapturedLength], 2, 2);
    r.insert(r.end(), {'O', 'p', 'd', 0xAB, 0xCD});
    return r;
}

std::vector<uint8_t> SampleCapture() {
    std::vector<uint8_t> file(4096);
    size_t size = BuildSectionHeader(file.data(), file.size(), "OrbPerixProvider 9.9");
    size += BuildInterfaceDescription(file.data() + size, file.size() - size, kLinkType, "orbperix");
    const std::vector<uint8_t> record = SampleRecord();
    size += BuildEnhancedPacket(file.data() + size, file.size() - size, 0x0000000100000002ull,
                                record.data(), static_cast<uint32_t>(record.size()));
    size += BuildInterfaceStatistics(file.data() + size, file.size() - size, 1, 2, 1, 3);
    file.resize(size);
    return file;
}

TEST(PcapngBlocks, EnhancedPacketIsPinnedByteForByte) {
    const uint8_t data[3] = {0xAA, 0xBB, 0xCC};
    uint8_t out[64];
    ASSERT_EQ(36u, BuildEnhancedPacket(out, sizeof(out), 0x0102030405060708ull, data, 3));
    const std::vector<uint8_t> expected = {
        6, 0, 0, 0,               // block type
        36, 0, 0, 0,              // total length
        0, 0, 0, 0,               // interface 0
        0x04, 0x03, 0x02, 0x01,   // timestamp, high word
        0x08, 0x07, 0x06, 0x05,   // timestamp, low word
        3, 0, 0, 0,               // captured length
        3, 0, 0, 0,               // original length
        0xAA, 0xBB, 0xCC, 0,      // data, padded to 4
        36, 0, 0, 0,              // total length again
    };
    EXPECT_EQ(expected, std::vector<uint8_t>(out, out + 36));
}

TEST(PcapngBlocks, HeadersNameTheLibraryAndNanosecondsAndEveryBuilderRefusesASmallBuffer) {
    const std::vector<uint8_t> section =
        Block([](uint8_t* o, size_t c) { return BuildSectionHeader(o, c, "OrbPerixProvider 1.0.0"); });
    ASSERT_EQ(0u, section.size() % 4);
    EXPECT_EQ(kByteOrderMagic, GetLE(&section[8], 4));
    EXPECT_EQ(kOptShbApplication, GetLE(&section[24], 2));
    EXPECT_EQ("OrbPerixProvider 1.0.0", std::string(section.begin() + 28, section.begin() + 50));
    const std::vector<uint8_t> iface =
        Block([](uint8_t* o, size_t c) { return BuildInterfaceDescription(o, c, 147, "orbperix"); });
    EXPECT_EQ(147u, GetLE(&iface[8], 2));
    // if_name (8 bytes), then if_tsresol = 9.
    EXPECT_EQ(kOptIfTsResol, GetLE(&iface[28], 2));
    EXPECT_EQ(9u, iface[32]);
    uint8_t small[16];
    EXPECT_EQ(0u, BuildSectionHeader(small, sizeof(small), "x"));
    EXPECT_EQ(0u, BuildInterfaceDescription(small, sizeof(small), 147, "x"));
    EXPECT_EQ(0u, BuildEnhancedPacket(small, sizeof(small), 0, small, 8));
    EXPECT_EQ(0u, BuildInterfaceStatistics(small, sizeof(small), 0, 0, 0, 0));
}

TEST(CaptureReader, ReadsEveryFieldOfABuiltCapture) {
    const std::vector<uint8_t> file = SampleCapture();
    Capture capture;
    std::string error;
    ASSERT_TRUE(ReadCapture(file.data(), file.size(), &capture, &error)) << error;
    EXPECT_EQ("OrbPerixProvider 9.9", capture.application);
    EXPECT_TRUE(capture.hasStatistics);
    EXPECT_EQ(1u, capture.statWritten);
    EXPECT_EQ(3u, capture.statDropped);
    ASSERT_EQ(1u, capture.records.size());
    const auto& r = capture.records[0];
    EXPECT_EQ(0x0000000100000002ull, r.timeNs);
    EXPECT_EQ(-13, r.result);
    EXPECT_EQ(77u, r.thread);
    EXPECT_EQ(0x1234u, r.handle);
    EXPECT_EQ(500u, r.durationNs);
    EXPECT_EQ("Op", r.name);
    EXPECT_EQ("d", r.device);
    EXPECT_EQ("", r.service);
    EXPECT_EQ((std::vector<uint8_t>{0xAB, 0xCD}), r.payload);
}

TEST(CaptureReader, EveryCutInsideABlockIsRefusedWithTheOffsetOfThatBlock) {
    const std::vector<uint8_t> file = SampleCapture();
    std::vector<size_t> starts;  // where each block begins
    for (size_t at = 0; at < file.size(); at += GetLE(&file[at + 4], 4)) {
        starts.push_back(at);
    }
    ASSERT_EQ(4u, starts.size());
    for (size_t size = 1; size < file.size(); ++size) {
        Capture capture;
        std::string error;
        const bool atBoundary = std::find(starts.begin(), starts.end(), size) != starts.end();
        // A file cut between blocks is a shorter capture (without its statistics block).
        EXPECT_EQ(atBoundary, ReadCapture(file.data(), size, &capture, &error)) << size;
        if (!atBoundary) {
            const size_t block = *(std::upper_bound(starts.begin(), starts.end(), size) - 1);
            EXPECT_EQ(0u, error.find("at offset " + std::to_string(block) + ": "))
                << size << ": " << error;
        }
    }
}

TEST(CaptureReader, CorruptBytesAreRefusedOrReadWithinTheirLimits) {
    const std::vector<uint8_t> file = SampleCapture();
    int refused = 0;
    for (size_t at = 0; at < file.size(); ++at) {
        for (uint8_t value : {uint8_t{0x00}, uint8_t{0x7F}, uint8_t{0xFF}}) {
            std::vector<uint8_t> bad = file;
            if (bad[at] == value) continue;
            bad[at] = value;
            Capture capture;
            std::string error;
            if (!ReadCapture(bad.data(), bad.size(), &capture, &error)) {
                ++refused;
                EXPECT_EQ(0u, error.find("at offset ")) << at << ": " << error;
            } else {
                for (const auto& r : capture.records) {
                    EXPECT_LE(r.payload.size(), r.payloadLength) << at;
                }
            }
        }
    }
    EXPECT_GT(refused, 0);
}

}  // namespace
