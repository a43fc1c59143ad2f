// The bounded copy: the same on every platform (the C runtime's checked copies would call an
// invalid-parameter handler that may end the process, which the library must never do).
#include <cstring>

#include "platform/platform.h"

namespace OrbPerix {
namespace platform {

int BoundedCopy(void* dest, size_t destSize, const void* src, size_t count) {
    if (count == 0) {
        return kCopyOk;
    }
    if (dest == nullptr) {
        return kCopyNullArgument;
    }
    if (src == nullptr) {
        std::memset(dest, 0, destSize);
        return kCopyNullArgument;
    }
    if (count > destSize) {
        std::memset(dest, 0, destSize);
        return kCopyDestinationTooSmall;
    }
    std::memmove(dest, src, count);
    return kCopyOk;
}

}  // namespace platform
}  // namespace OrbPerix
