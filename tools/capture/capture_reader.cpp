#include "capture_reader.h"

#include <fstream>
#include <iterator>

#include "capture/pcapng.h"
#include "capture/record_format.h"

namespace OrbPerix {
namespace capture_file {
namespace {

using capture::GetLE;

bool Fail(std::string* error, size_t offset, const std::string& what) {
    if (error != nullptr) {
        *error = "at offset " + std::to_string(offset) + ": " + what;
    }
    return false;
}

bool ParseRecord(const uint8_t* p, size_t size, size_t offset, Record* out, std::string* error) {
    using namespace capture;
    if (size < kRecordHeaderSize) {
        return Fail(error, offset, "record of " + std::to_string(size) +
                                       " bytes is shorter than its 60-byte header");
    }
    if (p[0] != kRecordVersion) {
        return Fail(error, offset, "record version " + std::to_string(p[0]) + " is not 1");
    }
    if (p[kOffDirection] > 2 || p[kOffPayloadKind] > 6) {
        return Fail(error, offset, "record direction or payload kind out of range");
    }
    Record r;
    r.direction = p[kOffDirection];
    r.flags = p[kOffFlags];
    r.payloadKind = p[kOffPayloadKind];
    r.result = static_cast<int32_t>(GetLE(p + kOffResult, 4));
    r.thread = GetLE(p + kOffThread, 8);
    r.handle = GetLE(p + kOffHandle, 8);
    r.durationNs = GetLE(p + kOffDuration, 8);
    r.sincePostNs = GetLE(p + kOffSincePost, 8);
    r.aux = static_cast<uint32_t>(GetLE(p + kOffAux, 4));
    r.payloadLength = static_cast<uint32_t>(GetLE(p + kOffPayloadLength, 4));
    r.checksum = static_cast<uint32_t>(GetLE(p + kOffChecksum, 4));
    const size_t nameLength = p[kOffNameLength];
    const size_t deviceLength = p[kOffDeviceLength];
    const size_t serviceLength = p[kOffServiceLength];
    const size_t captured = static_cast<size_t>(GetLE(p + kOffCapturedLength, 2));
    if (kRecordHeaderSize + nameLength + deviceLength + serviceLength + captured != size) {
        return Fail(error, offset, "record field lengths do not add up to its " +
                                       std::to_string(size) + " bytes");
    }
    if (captured > r.payloadLength) {
        return Fail(error, offset, "record keeps more payload bytes than it saw");
    }
    const char* text = reinterpret_cast<const char*>(p + kRecordHeaderSize);
    r.name.assign(text, nameLength);
    r.device.assign(text + nameLength, deviceLength);
    r.service.assign(text + nameLength + deviceLength, serviceLength);
    const uint8_t* payload = p + kRecordHeaderSize + nameLength + deviceLength + serviceLength;
    r.payload.assign(payload, payload + captured);
    *out = std::move(r);
    return true;
}

uint64_t Timestamp(const uint8_t* p) {
    return (GetLE(p, 4) << 32) | GetLE(p + 4, 4);
}

// Options of an Interface Statistics Block (from `p` to `end`).
void ParseStatistics(const uint8_t* p, const uint8_t* end, Capture* out) {
    while (end - p >= 4) {
        const uint16_t code = static_cast<uint16_t>(GetLE(p, 2));
        const size_t length = static_cast<size_t>(GetLE(p + 2, 2));
        if (code == capture::kOptEnd || static_cast<size_t>(end - p - 4) < length) {
            return;
        }
        if (length == 8 && code == capture::kOptIsbIfDrop) {
            out->statDropped = GetLE(p + 4, 8);
        } else if (length == 8 && code == capture::kOptIsbUsrDeliv) {
            out->statWritten = GetLE(p + 4, 8);
        }
        p += 4 + ((length + 3) & ~static_cast<size_t>(3));
    }
}

}  // namespace

bool ReadCapture(const uint8_t* data, size_t size, Capture* out, std::string* error) {
    if (out == nullptr || (data == nullptr && size != 0)) {
        return Fail(error, 0, "no input");
    }
    Capture capture;
    bool sawSection = false;
    uint32_t interfaces = 0;
    size_t offset = 0;
    while (offset < size) {
        if (size - offset < 12) {
            return Fail(error, offset, "truncated block header (" +
                                           std::to_string(size - offset) + " bytes left)");
        }
        const uint8_t* block = data + offset;
        const uint32_t type = static_cast<uint32_t>(GetLE(block, 4));
        const uint32_t length = static_cast<uint32_t>(GetLE(block + 4, 4));
        if (!sawSection) {
            if (type != capture::kSectionHeaderType) {
                return Fail(error, offset, "not a pcapng file (no section header block)");
            }
            if (GetLE(block + 8, 4) != capture::kByteOrderMagic) {
                return Fail(error, offset,
                            "section is not little-endian or not pcapng (byte-order magic)");
            }
        }
        if (length < 12 || length % 4 != 0) {
            return Fail(error, offset, "block length " + std::to_string(length) + " is invalid");
        }
        if (length > size - offset) {
            return Fail(error, offset, "truncated block: length " + std::to_string(length) +
                                           ", " + std::to_string(size - offset) + " bytes left");
        }
        if (GetLE(block + length - 4, 4) != length) {
            return Fail(error, offset, "block's trailing length differs from its length");
        }
        const uint8_t* body = block + 8;
        const size_t bodySize = length - 12;
        switch (type) {
            case capture::kSectionHeaderType: {
                if (sawSection) {
                    return Fail(error, offset, "a second section is not supported");
                }
                sawSection = true;
                if (bodySize < 16) {
                    return Fail(error, offset, "section header too short");
                }
                const uint8_t* option = body + 16;
                const uint8_t* end = body + bodySize;
                while (end - option >= 4) {
                    const uint16_t code = static_cast<uint16_t>(GetLE(option, 2));
                    const size_t optionLength = static_cast<size_t>(GetLE(option + 2, 2));
                    if (code == capture::kOptEnd ||
                        static_cast<size_t>(end - option - 4) < optionLength) {
                        break;
                    }
                    if (code == capture::kOptShbApplication) {
                        capture.application.assign(reinterpret_cast<const char*>(option + 4),
                                                   optionLength);
                    }
                    option += 4 + ((optionLength + 3) & ~static_cast<size_t>(3));
                }
                break;
            }
            case capture::kInterfaceDescriptionType: {
                if (bodySize < 8) {
                    return Fail(error, offset, "interface description too short");
                }
                const uint16_t linkType = static_cast<uint16_t>(GetLE(body, 2));
                if (linkType != capture::kLinkType) {
                    return Fail(error, offset, "link type " + std::to_string(linkType) +
                                                   " is not an OrbPerix capture (147)");
                }
                ++interfaces;
                break;
            }
            case capture::kEnhancedPacketType: {
                if (bodySize < 20) {
                    return Fail(error, offset, "packet block too short");
                }
                if (GetLE(body, 4) >= interfaces) {
                    return Fail(error, offset, "packet block names an undeclared interface");
                }
                const uint32_t captured = static_cast<uint32_t>(GetLE(body + 12, 4));
                if (captured > bodySize - 20) {
                    return Fail(error, offset, "packet block's captured length " +
                                                   std::to_string(captured) +
                                                   " runs past the block");
                }
                Record record;
                if (!ParseRecord(body + 20, captured, offset + 28, &record, error)) {
                    return false;
                }
                record.timeNs = Timestamp(body + 4);
                capture.records.push_back(std::move(record));
                break;
            }
            case capture::kInterfaceStatisticsType:
                if (bodySize >= 12) {
                    capture.hasStatistics = true;
                    ParseStatistics(body + 12, body + bodySize, &capture);
                }
                break;
            default:
                break;  // other blocks are legal and carry nothing of ours
        }
        offset += length;
    }
    if (!sawSection) {
        return Fail(error, 0, "empty file");
    }
    *out = std::move(capture);
    return true;
}

bool ReadCaptureFile(const std::string& path, Capture* out, std::string* error) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        if (error != nullptr) {
            *error = "cannot open " + path;
        }
        return false;
    }
    const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(file)),
                                     std::istreambuf_iterator<char>());
    return ReadCapture(bytes.data(), bytes.size(), out, error);
}

const char* DirectionName(uint8_t direction) {
    switch (direction) {
        case 0: return "call";
        case 1: return "notify";
        case 2: return "listener";
        default: return "?";
    }
}

const char* PayloadKindName(uint8_t kind) {
    static const char* const kNames[] = {"none", "remote-control", "heartbeat", "button-data",
                                         "audio", "refresh", "binary"};
    return kind < 7 ? kNames[kind] : "?";
}

}  // namespace capture_file
}  // namespace OrbPerix
