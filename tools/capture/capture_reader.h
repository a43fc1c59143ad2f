// Reader of OrbPerix capture files (pcapng, records of link type LINKTYPE_USER0 as the library
// writes them; see src/capture/record_format.h). For orbperix-inspect, the tests and the fuzz
// target; not part of OrbPerixProvider.
//
// ReadCapture is a pure function of its input; safe from any thread. It never reads outside
// the bytes given, whatever they hold.
#ifndef ORBPERIX_TOOLS_CAPTURE_CAPTURE_READER_H_
#define ORBPERIX_TOOLS_CAPTURE_CAPTURE_READER_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace OrbPerix {
namespace capture_file {

struct Record {
    uint64_t timeNs = 0;  // monotonic clock of the recording process
    uint8_t direction = 0;  // 0 library->engine, 1 engine->library, 2 library->host
    uint8_t flags = 0;
    uint8_t payloadKind = 0;
    int32_t result = 0;
    uint64_t thread = 0;
    uint64_t handle = 0;
    uint64_t durationNs = 0;
    uint64_t sincePostNs = 0;
    uint32_t aux = 0;
    uint32_t payloadLength = 0;  // as the operation saw it
    uint32_t checksum = 0;
    std::string name;
    std::string device;
    std::string service;
    std::vector<uint8_t> payload;  // the captured part
};

struct Capture {
    std::string application;  // the section header's shb_userappl
    bool hasStatistics = false;
    uint64_t statWritten = 0;
    uint64_t statDropped = 0;
    std::vector<Record> records;
};

// Parses a whole capture. False with a one-line reason naming the byte offset ("at offset N:
// ...") for a truncated, foreign or corrupt file.
bool ReadCapture(const uint8_t* data, size_t size, Capture* out, std::string* error);
// Reads `path` and parses it; a file that cannot be read is reported the same way.
bool ReadCaptureFile(const std::string& path, Capture* out, std::string* error);

// "Main.PERIXStartService" style names of the record's direction and payload kind.
const char* DirectionName(uint8_t direction);
const char* PayloadKindName(uint8_t kind);

}  // namespace capture_file
}  // namespace OrbPerix

#endif  // ORBPERIX_TOOLS_CAPTURE_CAPTURE_READER_H_
