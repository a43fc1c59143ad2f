// Fuzz target of the capture reader behind orbperix-inspect --capture.
//
// Each input is taken as a capture file. The target aborts when the reader accepts a file and
// the result breaks what the reader promises (a record keeping more payload bytes than it saw,
// texts longer than the format allows), or when the summary and the timeline of an accepted
// capture do not come out. Reads outside the input are caught by the sanitizers of the fuzz
// build.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "capture_reader.h"
#include "capture_summary.h"

namespace {

void Violation(const char* what) {
    std::fprintf(stderr, "capture reader fuzz violation: %s\n", what);
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    OrbPerix::capture_file::Capture capture;
    std::string error;
    if (!OrbPerix::capture_file::ReadCapture(data, size, &capture, &error)) {
        if (error.rfind("at offset ", 0) != 0) {
            Violation("a refusal that names no offset");
        }
        return 0;
    }
    for (const OrbPerix::capture_file::Record& record : capture.records) {
        if (record.payload.size() > record.payloadLength || record.name.size() > 255 ||
            record.device.size() > 255 || record.service.size() > 255) {
            Violation("an accepted record breaks the format's limits");
        }
    }
    std::ostringstream summary;
    OrbPerix::inspect::WriteSummary(capture, summary);
    std::ostringstream timeline;
    OrbPerix::inspect::WriteTimeline(capture, timeline);
    if (summary.str().empty() || timeline.str().find("</svg>") == std::string::npos) {
        Violation("no summary or no timeline for an accepted capture");
    }
    return 0;
}
