#include "remote/framing.h"

#include "platform/platform.h"

#include <limits>

#include "log/log.h"
#include "remote/coding.h"

namespace RemoteUtil {

namespace {
constexpr const char* kTimeStampScope = "RemoteUtil::AddTimeStamp";
constexpr const char* kPaddingScope = "RemoteUtil::DoPaddingOperation";
// The innermost TimeStampReading of this thread, or null.
thread_local TimeStampReading* t_reading = nullptr;
}  // namespace

TimeStampReading::TimeStampReading() noexcept : outer_(t_reading) { t_reading = this; }

TimeStampReading::~TimeStampReading() { t_reading = outer_; }

int64_t ElapsedMilliseconds(int64_t now, int64_t start, int64_t frequency) {
    if (frequency == 0) {
        return 0;
    }
    // Unsigned arithmetic wraps where the signed formula would overflow and is bit-identical
    // to it everywhere else; the conversions back are modular on every supported compiler.
    const uint64_t ticks = static_cast<uint64_t>(now) - static_cast<uint64_t>(start);
    const int64_t signedTicks = static_cast<int64_t>(ticks);
    constexpr int64_t kNoOverflow = std::numeric_limits<int64_t>::max() / 1000;
    if (signedTicks >= -kNoOverflow && signedTicks <= kNoOverflow) {
        // The counter frequencies of the supported platforms (the monotonic clock's 1 GHz,
        // Windows' usual 10 MHz): ticks * 1000 / f equals ticks / (f / 1000) here, and a
        // constant divisor compiles to a multiplication. A run-time 64-bit division would
        // cost as much as the rest of a small packet's encoding.
        if (frequency == 1'000'000'000) {
            return signedTicks / 1'000'000;
        }
        if (frequency == 10'000'000) {
            return signedTicks / 10'000;
        }
    }
    const int64_t scaled = static_cast<int64_t>(ticks * 1000u);
    if (frequency == -1) {
        // INT64_MIN / -1 overflows; negation by wrapping gives the same low 32 bits.
        return static_cast<int64_t>(0u - static_cast<uint64_t>(scaled));
    }
    return scaled / frequency;
}

int AddTimeStamp(uint8_t* body, uint16_t bodyCapacity, int length, LARGE_INTEGER start,
                 LARGE_INTEGER frequency) {
    if (bodyCapacity == 0 || length <= 0) {
        // The padding step's text, logged under this scope on purpose: readers of the log rely
        // on the four-line pattern of a failing body.
        OrbPerix::log::Trace(LOG_MESSAGE_ERROR, kTimeStampScope,
                             "DoPaddingOperation, bodylength invalid");
        return length;
    }
    const int64_t now = OrbPerix::platform::PerformanceCounter();
    if (t_reading != nullptr) {
        t_reading->taken_ = true;
        t_reading->counter_ = now;
    }
    const int64_t elapsed = ElapsedMilliseconds(now, start.QuadPart, frequency.QuadPart);
    coding::PutFixed32BE(body + length, static_cast<uint32_t>(static_cast<uint64_t>(elapsed)));
    return length + 4;
}

int DoPaddingOperation(uint8_t* body, uint16_t bodyCapacity, int length) {
    if (bodyCapacity == 0 || length <= 0) {
        OrbPerix::log::Trace(LOG_MESSAGE_ERROR, kPaddingScope,
                             "DoPaddingOperation, bodylength invalid");
        return length;
    }
    if (length % 2 == 0) {
        return length;
    }
    if (length < bodyCapacity) {
        body[length] = 0;
        return length + 1;
    }
    OrbPerix::log::Trace(LOG_MESSAGE_ERROR, kPaddingScope,
                         "DoPaddingOperation, invalid memory for padding");
    return 0;
}

}  // namespace RemoteUtil
