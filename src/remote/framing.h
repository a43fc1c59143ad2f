// Packet framing around an encoded body: the millisecond timestamp and the padding byte that
// keeps every packet even. Pure functions of their arguments and the performance counter;
// reentrant.
#ifndef ORBPERIX_SRC_REMOTE_FRAMING_H_
#define ORBPERIX_SRC_REMOTE_FRAMING_H_

#include <cstdint>

#include "orbperix/large_integer.h"

namespace RemoteUtil {

// Appends the 4-byte big-endian timestamp, in milliseconds since `start`, at body[length].
// Returns length + 4, or `length` unchanged (logged) when bodyCapacity is 0 or length <= 0.
// The four bytes are not checked against bodyCapacity: the caller's buffer must have room for
// them (at most 4 bytes past the capacity, since every body ends below it).
int AddTimeStamp(uint8_t* body, uint16_t bodyCapacity, int length, LARGE_INTEGER start,
                 LARGE_INTEGER frequency);

// Makes the length even by one zero byte at body[length], which must lie below bodyCapacity.
// Returns the new length; `length` unchanged (logged) when bodyCapacity is 0 or length <= 0;
// 0 (logged) when an odd length cannot be padded.
int DoPaddingOperation(uint8_t* body, uint16_t bodyCapacity, int length);

}  // namespace RemoteUtil

#endif  // ORBPERIX_SRC_REMOTE_FRAMING_H_
