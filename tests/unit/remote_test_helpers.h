// Shared helpers of the remote-control tests: events with known content, a time base that
// makes packet timestamps exact, and a sender call into a guarded buffer.
#ifndef ORBPERIX_TESTS_UNIT_REMOTE_TEST_HELPERS_H_
#define ORBPERIX_TESTS_UNIT_REMOTE_TEST_HELPERS_H_

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "sample_events.h"
#include "log_capture.h"
#include "orbperix/remote_ctrl_event.h"
#include "orbperix/remote_event.h"
#include "platform/platform.h"

namespace remote_test {

// Filler of buffer bytes the sender must not touch.
constexpr uint8_t kGuard = 0xCC;

struct TimeBase {
    LARGE_INTEGER start;
    LARGE_INTEGER frequency;
};

// A start and frequency under which a packet built now carries exactly `milliseconds`.
// The frequency (5e11 ticks per second) is far above the real counter's (1e9 on Linux, 1e7 on
// Windows), so the real time that passes before the encoding (up to half a second) adds less
// than one millisecond, while the encoder's (now - start) * 1000 stays inside 64 bits.
// REQUIRES: 0 <= milliseconds < 18'000'000.
inline TimeBase TimeBaseAt(int64_t milliseconds) {
    constexpr int64_t kFrequency = 500'000'000'000;
    TimeBase base{};
    base.frequency.QuadPart = kFrequency;
    base.start.QuadPart =
        OrbPerix::platform::PerformanceCounter() - milliseconds * (kFrequency / 1000);
    return base;
}

using sample_events::Event;

struct SendResult {
    int length;
    std::vector<uint8_t> buffer;  // the whole buffer after the call

    // The packet's bytes (empty on failure).
    std::vector<uint8_t> Packet() const {
        if (length <= 0) return {};
        return std::vector<uint8_t>(buffer.begin(), buffer.begin() + length);
    }
};

// Sends `event` through the exported sender into a buffer of `bufferSize` guard bytes.
inline SendResult Send(RemoteCtrlEvent& event, size_t bufferSize, uint8_t capacity,
                       int64_t milliseconds = 1234) {
    SendResult result{0, std::vector<uint8_t>(bufferSize, kGuard)};
    const TimeBase base = TimeBaseAt(milliseconds);
    result.length = RemoteUtil::RemoteEvent::GetInstance()->SendRemoteCtrlEvent(
        &event, result.buffer.data(), capacity, base.start, base.frequency);
    return result;
}

// A QxLogger line at error level as the encoder writes it.
inline LogLine ErrorLine(const std::string& message, const std::string& scope) {
    return LogLine{4, message + "(" + scope + ")"};
}

inline const std::string kPacketScope = "RemoteUtil::RemoteController::ConstructRemoteCtrlPacket";

// The three lines that follow every failing body, in order.
inline std::vector<LogLine> FailedBodyTail() {
    return {ErrorLine("DoPaddingOperation, bodylength invalid", "RemoteUtil::AddTimeStamp"),
            ErrorLine("DoPaddingOperation, bodylength invalid", "RemoteUtil::DoPaddingOperation"),
            ErrorLine("ConstructRemoteCtrlPacket, bodylength invalid", kPacketScope)};
}

// `first` followed by the failing-body tail.
inline std::vector<LogLine> FailedBodyLines(const LogLine& first) {
    std::vector<LogLine> lines{first};
    for (const LogLine& line : FailedBodyTail()) lines.push_back(line);
    return lines;
}

}  // namespace remote_test

#endif  // ORBPERIX_TESTS_UNIT_REMOTE_TEST_HELPERS_H_
