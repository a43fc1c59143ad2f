// The C interface of the capture: start and stop at run time. Any thread; the capture
// serialises them itself.
#include "capture/capture.h"
#include "orbperix/orbperix_c.h"

extern "C" {

ORBPERIX_API int orbperix_capture_start(const char* path, const orbperix_capture_options* options) {
    OrbPerix::capture::Options chosen;
    if (options != nullptr) {
        chosen.flags = (options->flags & ORBPERIX_CAPTURE_USER_TEXT) != 0
                           ? OrbPerix::capture::kOptionUserText
                           : 0u;
        chosen.payloadCap = options->payload_cap;
        if (options->queue_records != 0) {
            chosen.queueRecords = options->queue_records;
        }
    }
    return OrbPerix::capture::Start(path, chosen);
}

ORBPERIX_API int orbperix_capture_stop(void) { return OrbPerix::capture::Stop(); }

}  // extern "C"
