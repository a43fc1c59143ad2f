// orbperix-inspect's view of a capture: a summary table for a person (calls and notifications
// per operation, errors, heartbeat rate and gaps, post-to-write latency percentiles) and a
// timeline picture (SVG, a lane per thread).
#ifndef ORBPERIX_TOOLS_INSPECT_CAPTURE_SUMMARY_H_
#define ORBPERIX_TOOLS_INSPECT_CAPTURE_SUMMARY_H_

#include <ostream>

#include "capture_reader.h"

namespace OrbPerix {
namespace inspect {

void WriteSummary(const capture_file::Capture& capture, std::ostream& out);
void WriteTimeline(const capture_file::Capture& capture, std::ostream& out);

}  // namespace inspect
}  // namespace OrbPerix

#endif  // ORBPERIX_TOOLS_INSPECT_CAPTURE_SUMMARY_H_
