// LARGE_INTEGER, the 64-bit signed performance-counter value that the remote-control sender
// takes by value. On Windows it is the system's own union; elsewhere the same union is declared
// here at global namespace so that the sender's signature is identical on both platforms.
#ifndef ORBPERIX_LARGE_INTEGER_H_
#define ORBPERIX_LARGE_INTEGER_H_

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <stdint.h>

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic"  // anonymous struct, exactly as the Windows union
#endif
typedef union _LARGE_INTEGER {
    struct {
        uint32_t LowPart;
        int32_t HighPart;
    };
    struct {
        uint32_t LowPart;
        int32_t HighPart;
    } u;
    int64_t QuadPart;
} LARGE_INTEGER;
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
#endif

#endif  // ORBPERIX_LARGE_INTEGER_H_
