// A private copy of bytes that the engine or the host lent for one call, owned by the copy so
// that no provider frees it by hand. Non-throwing; any thread.
#ifndef ORBPERIX_SRC_PROVIDER_OWNED_BYTES_H_
#define ORBPERIX_SRC_PROVIDER_OWNED_BYTES_H_

#include <cstdint>
#include <memory>
#include <new>

#include "platform/platform.h"

namespace OrbPerix {

struct OwnedBytes {
    std::unique_ptr<uint8_t[]> bytes;  // null when either step below failed
    bool noMemory = false;             // the allocation failed
    int copyResult = platform::kCopyOk;  // otherwise BoundedCopy's result

    explicit operator bool() const noexcept { return bytes != nullptr; }
};

// Copies `length` bytes of `source` into a new buffer of exactly `length` bytes. A length of 0
// still gives a (non-null, empty) buffer and reads nothing from `source`.
inline OwnedBytes CopyBytes(const void* source, uint32_t length) noexcept {
    OwnedBytes copy;
    copy.bytes.reset(new (std::nothrow) uint8_t[length]);
    if (copy.bytes == nullptr) {
        copy.noMemory = true;
        return copy;
    }
    if (length > 0) {
        copy.copyResult = platform::BoundedCopy(copy.bytes.get(), length, source, length);
        if (copy.copyResult != platform::kCopyOk) {
            copy.bytes.reset();
        }
    }
    return copy;
}

}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_PROVIDER_OWNED_BYTES_H_
