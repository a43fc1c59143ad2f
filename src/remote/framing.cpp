#include "remote/framing.h"

#include "platform/platform.h"

#include "log/log.h"
#include "wire/coding.h"
#include "util/elapsed.h"

namespace RemoteUtil {

namespace {
constexpr const char* kTimeStampScope = "RemoteUtil::AddTimeStamp";
constexpr const char* kPaddingScope = "RemoteUtil::DoPaddingOperation";
}  // namespace

int AddTimeStamp(uint8_t* body, uint16_t bodyCapacity, int length, LARGE_INTEGER start,
                 LARGE_INTEGER frequency) {
    if (bodyCapacity == 0 || length <= 0) {
        // A failing body logs the same text at each framing step, so its four lines read as one.
        OrbPerix::log::Trace(LOG_MESSAGE_ERROR, kTimeStampScope,
                             "DoPaddingOperation, bodylength invalid");
        return length;
    }
    const int64_t now = OrbPerix::platform::PerformanceCounter();
    OrbPerix::TimeStampReading::Record(now);
    const int64_t elapsed = OrbPerix::ElapsedMilliseconds(now, start.QuadPart, frequency.QuadPart);
    OrbPerix::coding::PutFixed32BE(body + length,
                                   static_cast<uint32_t>(static_cast<uint64_t>(elapsed)));
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

namespace OrbPerix {

namespace {
// The innermost TimeStampReading of this thread, or null.
thread_local TimeStampReading* t_reading = nullptr;
}  // namespace

TimeStampReading::TimeStampReading() noexcept : outer_(t_reading) { t_reading = this; }

TimeStampReading::~TimeStampReading() { t_reading = outer_; }

void TimeStampReading::Record(int64_t counter) noexcept {
    if (t_reading != nullptr) {
        t_reading->taken_ = true;
        t_reading->counter_ = counter;
    }
}

}  // namespace OrbPerix
