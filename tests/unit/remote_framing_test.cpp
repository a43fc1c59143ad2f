// Packet framing: failure paths and their log lines, capacity limits, timestamp and padding.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "remote/framing.h"
#include "remote/remote_controller.h"
#include "util/elapsed.h"
#include "remote_test_helpers.h"

namespace {

using remote_test::ErrorLine;
using remote_test::FailedBodyLines;
using remote_test::FailedBodyTail;
using remote_test::kGuard;
using remote_test::kPacketScope;
using remote_test::Send;
using remote_test::SendResult;
using remote_test::ZeroEvent;

const std::string kContentScope = "RemoteUtil::RemoteController::ConstructInputContentEvent";
const std::string kMessageScope = "RemoteUtil::RemoteController::ConstructMessageEvent";

TEST(RemoteFraming, RotateAndReservedKindFailWithoutAnEncoderMessage) {
    for (uint32_t type : {4u, 5u}) {
        RemoteCtrlEvent event = ZeroEvent(type);
        ClearLogs();
        EXPECT_EQ(Send(event, 109, 105).length, -1) << "type " << type;
        EXPECT_EQ(TraceLines(), FailedBodyTail()) << "type " << type;
    }
}

TEST(RemoteFraming, TypesAboveTenAreRefusedBeforeAnyBody) {
    for (uint32_t type : {11u, 0xFFFFFFFFu}) {
        RemoteCtrlEvent event = ZeroEvent(type);
        ClearLogs();
        const SendResult result = Send(event, 109, 105);
        EXPECT_EQ(result.length, -1);
        const std::vector<LogLine> expected = {
            ErrorLine("ConstructInputBody, unsupported packet type " + std::to_string(type),
                      "RemoteUtil::RemoteController::ConstructInputBody"),
            ErrorLine("ConstructRemoteCtrlPacket, bodylength invalid", kPacketScope)};
        EXPECT_EQ(TraceLines(), expected);
        EXPECT_EQ(std::vector<uint8_t>(result.buffer.begin(), result.buffer.begin() + 105),
                  std::vector<uint8_t>(105, 0));
    }
}

// Every kind, at every capacity up to the header's size, fails with a logged reason, and
// writes nothing but zeros over the capacity.
TEST(RemoteFraming, CapacitiesUpToTheHeaderSizeFailEveryKind) {
    for (uint32_t type = 0; type <= 10; ++type) {
        RemoteCtrlEvent event = ZeroEvent(type);
        event.payload.input.content.contentLength = 1;   // valid text (type 7)
        event.payload.message.messageLength = 3;         // valid message (type 10)
        for (uint8_t capacity = 0; capacity <= 10; ++capacity) {
            ClearLogs();
            const SendResult result = Send(event, 32, capacity);
            EXPECT_EQ(result.length, -1) << "type " << type << " capacity " << int{capacity};
            const std::vector<LogLine> lines = TraceLines();
            ASSERT_GE(lines.size(), 3u);
            EXPECT_EQ(lines.back(),
                      ErrorLine("ConstructRemoteCtrlPacket, bodylength invalid", kPacketScope));
            for (size_t at = 0; at < result.buffer.size(); ++at) {
                EXPECT_EQ(result.buffer[at], at < capacity ? 0 : kGuard)
                    << "type " << type << " capacity " << int{capacity} << " byte " << at;
            }
        }
    }
}

// For each fixed-size kind: the largest capacity its encoder refuses, and the smallest that
// yields a packet. Odd bodies need their padding byte inside the capacity too, so for them the
// two are further apart and the smallest capacity equals the packet length.
TEST(RemoteFraming, FixedKindsCapacityThresholds) {
    struct Case {
        uint32_t type;
        uint32_t action;
        uint8_t refusedByEncoder;
        uint8_t smallest;
        int packetLength;
        std::string encoder;
    };
    const Case cases[] = {
        {1, 0, 22, 23, 26, "ConstructKeyEvent"},
        {2, 0, 19, 24, 24, "ConstructZoomEvent"},
        {3, 0, 15, 20, 20, "ConstructScrollEvent"},
        {6, 0, 22, 23, 26, "ConstructMouseEvent"},
        {7, 1, 22, 23, 26, "ConstructInputFocusEvent"},
        {8, 0, 20, 21, 24, "ConstructWheelEvent"},
        {9, 0, 17, 22, 22, "ConstructVirtualKeyEvent"},
    };
    for (const Case& c : cases) {
        RemoteCtrlEvent event = ZeroEvent(c.type);
        event.payload.key.action = c.action;  // the action word leads every member
        ClearLogs();
        EXPECT_EQ(Send(event, 64, c.refusedByEncoder).length, -1) << c.encoder;
        EXPECT_EQ(TraceLines(),
                  FailedBodyLines(ErrorLine(c.encoder + ", param not valid",
                                            "RemoteUtil::RemoteController::" + c.encoder)));
        ClearLogs();
        EXPECT_EQ(Send(event, 64, static_cast<uint8_t>(c.smallest - 1)).length, -1) << c.encoder;
        EXPECT_FALSE(TraceLines().empty()) << c.encoder;
        EXPECT_EQ(Send(event, 64, c.smallest).length, c.packetLength) << c.encoder;
    }
}

TEST(RemoteFraming, OddBodyEndingAtTheCapacityCannotBePadded) {
    // Scroll: 5 body bytes + 4 timestamp bytes = 9, odd; a body capacity of exactly 9 leaves
    // no byte for the padding.
    RemoteCtrlEvent event = ZeroEvent(3);
    ClearLogs();
    const SendResult result = Send(event, 64, 19);
    EXPECT_EQ(result.length, -1);
    const std::vector<LogLine> expected = {
        ErrorLine("DoPaddingOperation, invalid memory for padding",
                  "RemoteUtil::DoPaddingOperation"),
        ErrorLine("ConstructRemoteCtrlPacket, bodylength invalid", kPacketScope)};
    EXPECT_EQ(TraceLines(), expected);
    EXPECT_EQ(Send(event, 64, 20).length, 20);
}

struct LengthCase {
    uint16_t length;
    int result;                 // packet length or -1
    std::string firstLog;       // expected first log line text (empty: none)
};

// Text input with the capacity the input provider passes (233, body capacity 223).
TEST(RemoteFraming, TextInputLimitsAtCapacity233) {
    const std::string tooLarge = "ConstructInputContentEvent , msg length too large(" + kContentScope + ")";
    const std::string notValid = "ConstructInputContentEvent, param not valid(" + kContentScope + ")";
    const std::string noPadding =
        "DoPaddingOperation, invalid memory for padding(RemoteUtil::DoPaddingOperation)";
    const LengthCase cases[] = {
        {0, -1, tooLarge},     {1, 20, ""},          {2, 22, ""},
        {211, 230, ""},        {212, 232, ""},       {213, 232, ""},
        {214, -1, noPadding},  {215, 234, ""},       {216, -1, noPadding},
        {217, 236, ""},        {218, -1, notValid},  {472, -1, notValid},
        {473, -1, tooLarge},   {0xFFFF, -1, tooLarge},
    };
    for (const LengthCase& c : cases) {
        RemoteCtrlEvent event = ZeroEvent(7);
        event.payload.input.content.contentLength = c.length;
        for (size_t i = 0; i < sizeof(event.payload.input.content.content); ++i) {
            event.payload.input.content.content[i] = static_cast<uint8_t>('A' + i % 26);
        }
        ClearLogs();
        const SendResult result = Send(event, 489, 233);
        EXPECT_EQ(result.length, c.result) << "length " << c.length;
        const std::vector<std::string> texts = TraceTexts();
        if (c.firstLog.empty()) {
            EXPECT_TRUE(texts.empty()) << "length " << c.length;
            ASSERT_GT(result.length, 0);
            // Content follows the 5-byte head unchanged.
            for (size_t i = 0; i < c.length; ++i) {
                ASSERT_EQ(result.buffer[15 + i], 'A' + i % 26) << "length " << c.length;
            }
        } else {
            ASSERT_FALSE(texts.empty());
            EXPECT_EQ(texts.front(), c.firstLog) << "length " << c.length;
            EXPECT_EQ(texts.back(), "ConstructRemoteCtrlPacket, bodylength invalid(" +
                                        kPacketScope + ")");
        }
        // Only the reduced capacity is used: behind the packet, the 489-byte buffer keeps
        // what it held.
        // (A body that failed its padding still had its timestamp written, up to 233 + 4.)
        const size_t end =
            c.result > 0 ? std::max<size_t>(static_cast<size_t>(c.result), 233) : 233 + 4;
        for (size_t at = end; at < result.buffer.size(); ++at) {
            ASSERT_EQ(result.buffer[at], kGuard) << "length " << c.length << " byte " << at;
        }
    }
}

// Messages with the capacity the input provider passes (235, body capacity 225).
TEST(RemoteFraming, MessageLimitsAtCapacity235) {
    const std::string tooLarge = "ConstructInputEvent , msg length too large(" + kMessageScope + ")";
    const std::string notValid = "ConstructMessageEvent, param not valid(" + kMessageScope + ")";
    const std::string noPadding =
        "DoPaddingOperation, invalid memory for padding(RemoteUtil::DoPaddingOperation)";
    const LengthCase cases[] = {
        {0, -1, tooLarge},    {2, -1, tooLarge},    {3, 22, ""},
        {4, 24, ""},          {213, 232, ""},       {214, 234, ""},
        {216, -1, noPadding}, {217, 236, ""},       {218, -1, noPadding},
        {219, 238, ""},       {220, -1, notValid},  {472, -1, notValid},
        {473, -1, tooLarge},
    };
    for (const LengthCase& c : cases) {
        RemoteCtrlEvent event = ZeroEvent(10);
        event.payload.message.messageLength = c.length;
        event.payload.message.messageWord = 0x0102;
        for (size_t i = 0; i < sizeof(event.payload.message.messageData); ++i) {
            event.payload.message.messageData[i] = static_cast<uint8_t>('a' + i % 26);
        }
        ClearLogs();
        const SendResult result = Send(event, 491, 235);
        EXPECT_EQ(result.length, c.result) << "length " << c.length;
        const std::vector<std::string> texts = TraceTexts();
        if (c.firstLog.empty()) {
            EXPECT_TRUE(texts.empty()) << "length " << c.length;
            ASSERT_GT(result.length, 0);
            for (size_t i = 0; i + 2 < c.length; ++i) {
                ASSERT_EQ(result.buffer[17 + i], 'a' + i % 26) << "length " << c.length;
            }
        } else {
            ASSERT_FALSE(texts.empty());
            EXPECT_EQ(texts.front(), c.firstLog) << "length " << c.length;
        }
    }
}

TEST(RemoteFraming, MessageLengthIsCheckedBeforeTheAction) {
    RemoteCtrlEvent event = ZeroEvent(10);
    event.payload.message.action = 9;
    event.payload.message.messageLength = 2;
    ClearLogs();
    EXPECT_EQ(Send(event, 491, 235).length, -1);
    EXPECT_EQ(TraceLines(), FailedBodyLines(ErrorLine("ConstructInputEvent , msg length too large",
                                                      kMessageScope)));
}

// The longest texts are only reachable through the controller's 16-bit capacity.
TEST(RemoteFraming, LongestTextAndMessageWithALargeCapacity) {
    RemoteUtil::RemoteController controller;
    const remote_test::TimeBase base = remote_test::TimeBaseAt(1234);
    std::vector<uint8_t> buffer(600 + 4, kGuard);

    RemoteCtrlEvent text = ZeroEvent(7);
    text.payload.input.content.contentLength = 472;
    text.payload.input.content.content[471] = 0x5A;
    EXPECT_EQ(controller.ConstructRemoteCtrlPacket(&text, buffer.data(), 600, base.start,
                                                   base.frequency),
              10 + 477 + 4 + 1);
    EXPECT_EQ(buffer[15 + 471], 0x5A);
    EXPECT_EQ(buffer[11], 0x01);  // body length 472 + 2 + 1 = 475 = 0x01DB
    EXPECT_EQ(buffer[12], 0xDB);

    RemoteCtrlEvent message = ZeroEvent(10);
    message.payload.message.messageLength = 472;
    message.payload.message.messageData[469] = 0x5B;
    EXPECT_EQ(controller.ConstructRemoteCtrlPacket(&message, buffer.data(), 600, base.start,
                                                   base.frequency),
              10 + 477 + 4 + 1);
    EXPECT_EQ(buffer[17 + 469], 0x5B);
}

TEST(RemoteFraming, ControllerRejectsNullBufferAndNullEvent) {
    RemoteUtil::RemoteController controller;
    const remote_test::TimeBase base = remote_test::TimeBaseAt(0);
    RemoteCtrlEvent event = ZeroEvent(6);
    ClearLogs();
    EXPECT_EQ(controller.ConstructRemoteCtrlPacket(&event, nullptr, 105, base.start,
                                                   base.frequency),
              -1);
    std::vector<uint8_t> buffer(109, kGuard);
    EXPECT_EQ(controller.ConstructRemoteCtrlPacket(nullptr, buffer.data(), 105, base.start,
                                                   base.frequency),
              -1);
    const std::vector<LogLine> expected = {
        ErrorLine("ConstructRemoteCtrlPacket param invalid", kPacketScope),
        ErrorLine("ConstructRemoteCtrlPacket, event invalid", kPacketScope)};
    EXPECT_EQ(TraceLines(), expected);
    // The capacity is zeroed before the event is looked at.
    EXPECT_EQ(std::vector<uint8_t>(buffer.begin(), buffer.begin() + 105),
              std::vector<uint8_t>(105, 0));
    EXPECT_EQ(buffer[105], kGuard);

    ClearLogs();
    EXPECT_EQ(controller.ConstructInputBody(nullptr, buffer.data(), 95, base.start,
                                            base.frequency),
              -1);
    EXPECT_EQ(TraceLines(), (std::vector<LogLine>{ErrorLine(
                                "event or buffer is null",
                                "RemoteUtil::RemoteController::ConstructInputBody")}));
}

TEST(RemoteFraming, PaddingStep) {
    uint8_t body[8];
    std::fill(std::begin(body), std::end(body), kGuard);
    EXPECT_EQ(RemoteUtil::DoPaddingOperation(body, 8, 6), 6);  // even: untouched
    EXPECT_EQ(body[6], kGuard);
    EXPECT_EQ(RemoteUtil::DoPaddingOperation(body, 8, 7), 8);  // odd, room left
    EXPECT_EQ(body[7], 0);

    ClearLogs();
    EXPECT_EQ(RemoteUtil::DoPaddingOperation(body, 8, 8 + 1), 0);  // odd, no room
    EXPECT_EQ(RemoteUtil::DoPaddingOperation(body, 8, -1), -1);
    EXPECT_EQ(RemoteUtil::DoPaddingOperation(body, 8, 0), 0);
    EXPECT_EQ(RemoteUtil::DoPaddingOperation(body, 0, 5), 5);
    const LogLine invalid = ErrorLine("DoPaddingOperation, bodylength invalid",
                                      "RemoteUtil::DoPaddingOperation");
    const std::vector<LogLine> expected = {
        ErrorLine("DoPaddingOperation, invalid memory for padding",
                  "RemoteUtil::DoPaddingOperation"),
        invalid, invalid, invalid};
    EXPECT_EQ(TraceLines(), expected);
}

TEST(RemoteFraming, TimestampStepSharesThePaddingMessage) {
    uint8_t body[8];
    std::fill(std::begin(body), std::end(body), kGuard);
    const remote_test::TimeBase base = remote_test::TimeBaseAt(0x010203);
    ClearLogs();
    EXPECT_EQ(RemoteUtil::AddTimeStamp(body, 0, 2, base.start, base.frequency), 2);
    EXPECT_EQ(RemoteUtil::AddTimeStamp(body, 8, 0, base.start, base.frequency), 0);
    EXPECT_EQ(RemoteUtil::AddTimeStamp(body, 8, -1, base.start, base.frequency), -1);
    const LogLine line = ErrorLine("DoPaddingOperation, bodylength invalid",
                                   "RemoteUtil::AddTimeStamp");
    EXPECT_EQ(TraceLines(), (std::vector<LogLine>{line, line, line}));
    EXPECT_EQ(body[0], kGuard);

    // Written without a capacity check: the caller guarantees the room.
    EXPECT_EQ(RemoteUtil::AddTimeStamp(body, 2, 2, base.start, base.frequency), 6);
    EXPECT_EQ(std::vector<uint8_t>(body + 2, body + 6), (std::vector<uint8_t>{0, 1, 2, 3}));
}

TEST(RemoteFraming, ElapsedMillisecondsTruncatesTowardZeroAndNeverTraps) {
    using OrbPerix::ElapsedMilliseconds;
    EXPECT_EQ(ElapsedMilliseconds(2500, 0, 1000), 2500);
    EXPECT_EQ(ElapsedMilliseconds(10, 0, 3), 3333);
    EXPECT_EQ(ElapsedMilliseconds(0, 10, 3), -3333);  // toward zero, not down
    EXPECT_EQ(ElapsedMilliseconds(5, 5, 1), 0);
    EXPECT_EQ(ElapsedMilliseconds(123, 0, 0), 0);     // no time base
    EXPECT_EQ(ElapsedMilliseconds(7, 0, -1), -7000);
    // The platforms' own frequencies take a shortcut; it must agree with the formula on both
    // sides of zero and at the edge where ticks * 1000 still fits.
    const int64_t edge = std::numeric_limits<int64_t>::max() / 1000;
    for (int64_t frequency : {int64_t{1'000'000'000}, int64_t{10'000'000}, int64_t{999'999}}) {
        for (int64_t ticks : {int64_t{0}, int64_t{1}, int64_t{-1}, frequency / 1000 - 1,
                              frequency / 1000, -frequency / 1000 - 1, int64_t{123456789012345},
                              -int64_t{123456789012345}, edge, -edge}) {
            EXPECT_EQ(ElapsedMilliseconds(ticks, 0, frequency), ticks * 1000 / frequency)
                << ticks << " ticks at " << frequency;
            EXPECT_EQ(ElapsedMilliseconds(1000 + ticks, 1000, frequency),
                      ticks * 1000 / frequency);
        }
    }
    // Beyond the edge the product wraps instead of overflowing; defined for any input.
    EXPECT_EQ(ElapsedMilliseconds(edge + 1, 0, 1'000'000'000),
              static_cast<int64_t>(static_cast<uint64_t>(edge + 1) * 1000u) / 1'000'000'000);
    const int64_t max = std::numeric_limits<int64_t>::max();
    const int64_t min = std::numeric_limits<int64_t>::min();
    (void)ElapsedMilliseconds(max, min, -1);
    (void)ElapsedMilliseconds(min, max, 1);
}

}  // namespace
