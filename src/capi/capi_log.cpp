// The C interface of the developer log (see log/developer_log.h).
#include "capi/capi_common.h"
#include "log/developer_log.h"

extern "C" {

int orbperix_set_log_callback(int level, orbperix_log_fn fn, void* user_data) {
    return OrbPerix::log::developer::SetCallback(level, fn, user_data);
}

int orbperix_set_log_output(const char* destination, int level) {
    return OrbPerix::log::developer::SetOutput(destination, level);
}

}  // extern "C"
