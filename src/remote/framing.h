// Packet framing around an encoded body: the millisecond timestamp and the padding byte that
// keeps every packet even. Functions of their arguments and the performance counter, reentrant;
// the timestamp step also hands its counter reading to the calling thread's TimeStampReading
// (in OrbPerix: only what the exported interface names lives in RemoteUtil).
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

namespace OrbPerix {

// While one lives, the counter reading of the timestamps RemoteUtil::AddTimeStamp appends on the
// creating thread is kept in it, so that whoever asked for the packet can stamp the same moment
// without reading the counter again. One per thread at a time; the newest one wins when nested.
class TimeStampReading {
public:
    TimeStampReading() noexcept;
    ~TimeStampReading();
    TimeStampReading(const TimeStampReading&) = delete;
    TimeStampReading& operator=(const TimeStampReading&) = delete;

    // Whether a timestamp was appended meanwhile, and the counter it was taken from.
    bool Taken() const noexcept { return taken_; }
    int64_t Counter() const noexcept { return counter_; }

    // AddTimeStamp: keeps `counter` in the calling thread's innermost reading, if any.
    static void Record(int64_t counter) noexcept;

private:
    TimeStampReading* outer_;
    bool taken_ = false;
    int64_t counter_ = 0;
};

}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_REMOTE_FRAMING_H_
