// The remote-control encoder, grouped by event kind: exact packet bytes (golden arrays built
// through the exported sender with a controlled time base, so every packet carries the
// timestamp 1234 ms, 00 00 04 D2), refusals and their log lines, capacity limits, timestamp and
// padding, and the sender itself.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <set>
#include <thread>

#include "packet_decoder.h"
#include "platform/platform.h"
#include "remote/framing.h"
#include "remote/remote_controller.h"
#include "remote_test_helpers.h"
#include "util/elapsed.h"

namespace {

using Bytes = std::vector<uint8_t>;
using remote_test::ErrorLine;
using remote_test::FailedBodyLines;
using remote_test::FailedBodyTail;
using remote_test::Send;
using remote_test::SendResult;
using remote_test::Event;
using remote_test::kGuard;
using remote_test::kPacketScope;
const std::string kContentScope = "RemoteUtil::RemoteController::ConstructInputContentEvent";
const std::string kMessageScope = "RemoteUtil::RemoteController::ConstructMessageEvent";

// Sends `event` expecting -1 and exactly `lines` logged.
void ExpectRefusal(RemoteCtrlEvent event, size_t bufferSize, uint8_t capacity,
                   const std::vector<LogLine>& lines) {
    ClearLogs();
    EXPECT_EQ(Send(event, bufferSize, capacity).length, -1) << "type " << event.type;
    EXPECT_EQ(TraceLines(), lines) << "type " << event.type;
}

// ---- Every kind: header, refusals, capacities, timestamp and padding.

TEST(EncoderFraming, HeaderFlagsMapThreeBitsAndTagCopiesTheLowByte) {
    struct Case {
        uint32_t headerFlags;
        uint8_t byte0;
    };
    const Case cases[] = {
        {0x08, 0x08}, {0x20, 0x04}, {0x40, 0x02}, {0x68, 0x0E},
        {0xFFFFFF97, 0x00},  // every other bit is ignored
        {0xFFFFFFFF, 0x0E},
    };
    for (const Case& c : cases) {
        RemoteCtrlEvent event = Event(3);
        event.headerFlags = c.headerFlags;
        event.headerTag = 0x123456A5;
        event.reserved = 0xFFFFFFFF;  // never read
        const SendResult result = Send(event, 109, 105);
        ASSERT_EQ(result.length, 20);
        EXPECT_EQ(result.buffer[0], c.byte0) << std::hex << c.headerFlags;
        EXPECT_EQ(result.buffer[4], 0xA5);
        EXPECT_EQ(Bytes(result.buffer.begin() + 5, result.buffer.begin() + 10), Bytes(5, 0));
    }
}

// Coordinates: truncated to int32 (0 when out of range or NaN), low 16 bits, high byte first.
TEST(EncoderFraming, CoordinateConversionSweep) {
    struct Case {
        double value;
        uint16_t wire;
    };
    const double inf = std::numeric_limits<double>::infinity();
    const Case cases[] = {
        {70000.0, 0x1170},
        {-1.5, 0xFFFF},
        {-0.9, 0x0000},
        {0.9999, 0x0000},
        {65535.0, 0xFFFF},
        {65536.0, 0x0000},
        {-32768.0, 0x8000},
        {2147483647.9, 0xFFFF},    // INT32_MAX
        {2147483648.0, 0x0000},    // out of range
        {-2147483648.9, 0x0000},   // truncates to INT32_MIN, low bits 0
        {-2147483647.0, 0x0001},
        {-2147483649.0, 0x0000},   // out of range
        {1e300, 0x0000},
        {-1e300, 0x0000},
        {inf, 0x0000},
        {-inf, 0x0000},
        {std::numeric_limits<double>::quiet_NaN(), 0x0000},
        {std::numeric_limits<double>::denorm_min(), 0x0000},
    };
    for (const Case& c : cases) {
        RemoteCtrlEvent event = Event(6);
        event.payload.mouse.coords[2] = c.value;
        const SendResult result = Send(event, 109, 105);
        ASSERT_EQ(result.length, 26);
        EXPECT_EQ(result.buffer[18], c.wire >> 8) << c.value;
        EXPECT_EQ(result.buffer[19], c.wire & 0xFF) << c.value;
    }
}

TEST(EncoderFraming, RotateAndReservedKindFailWithoutAnEncoderMessage) {
    for (uint32_t type : {4u, 5u}) {
        ExpectRefusal(Event(type), 109, 105, FailedBodyTail());
    }
}

TEST(EncoderFraming, TypesAboveTenAreRefusedBeforeAnyBody) {
    for (uint32_t type : {11u, 0xFFFFFFFFu}) {
        RemoteCtrlEvent event = Event(type);
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
TEST(EncoderFraming, CapacitiesUpToTheHeaderSizeFailEveryKind) {
    for (uint32_t type = 0; type <= 10; ++type) {
        RemoteCtrlEvent event = Event(type);
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
TEST(EncoderFraming, FixedKindsCapacityThresholds) {
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
        RemoteCtrlEvent event = Event(c.type);
        event.payload.key.action = c.action;  // the action word leads every member
        ExpectRefusal(event, 64, c.refusedByEncoder,
                      FailedBodyLines(ErrorLine(c.encoder + ", param not valid",
                                                "RemoteUtil::RemoteController::" + c.encoder)));
        ClearLogs();
        EXPECT_EQ(Send(event, 64, static_cast<uint8_t>(c.smallest - 1)).length, -1) << c.encoder;
        EXPECT_FALSE(TraceLines().empty()) << c.encoder;
        EXPECT_EQ(Send(event, 64, c.smallest).length, c.packetLength) << c.encoder;
    }
}

TEST(EncoderFraming, ControllerRejectsNullBufferAndNullEvent) {
    RemoteUtil::RemoteController controller;
    const remote_test::TimeBase base = remote_test::TimeBaseAt(0);
    RemoteCtrlEvent event = Event(6);
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

TEST(EncoderFraming, PaddingStep) {
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

TEST(EncoderFraming, TimestampStepSharesThePaddingMessage) {
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

// The poster stamps its input time from the reading the timestamp step took: the same counter
// value that the appended milliseconds were computed from, kept only by the innermost reading
// of the thread, and nothing for a body that got no timestamp.
TEST(EncoderFraming, TimeStampReadingKeepsTheCounterOfTheAppendedTimestamp) {
    uint8_t body[8] = {};
    LARGE_INTEGER start{};
    start.QuadPart = OrbPerix::platform::PerformanceCounter() - 5000;
    LARGE_INTEGER frequency{};
    frequency.QuadPart = 1000;  // one tick a millisecond: the bytes show the counter itself
    OrbPerix::TimeStampReading outer;
    {
        OrbPerix::TimeStampReading inner;
        ClearLogs();
        EXPECT_EQ(RemoteUtil::AddTimeStamp(body, 8, 0, start, frequency), 0);
        EXPECT_FALSE(inner.Taken()) << "a failed body has no timestamp";
        const int64_t before = OrbPerix::platform::PerformanceCounter();
        ASSERT_EQ(RemoteUtil::AddTimeStamp(body, 8, 2, start, frequency), 6);
        const int64_t after = OrbPerix::platform::PerformanceCounter();
        ASSERT_TRUE(inner.Taken());
        EXPECT_GE(inner.Counter(), before);
        EXPECT_LE(inner.Counter(), after);
        const uint32_t stamped = static_cast<uint32_t>(body[2]) << 24 |
                                 static_cast<uint32_t>(body[3]) << 16 |
                                 static_cast<uint32_t>(body[4]) << 8 | body[5];
        EXPECT_EQ(static_cast<uint32_t>(OrbPerix::ElapsedMilliseconds(
                      inner.Counter(), start.QuadPart, frequency.QuadPart)),
                  stamped);
        EXPECT_FALSE(outer.Taken()) << "only the innermost reading keeps it";
    }
    ASSERT_EQ(RemoteUtil::AddTimeStamp(body, 8, 2, start, frequency), 6);
    EXPECT_TRUE(outer.Taken()) << "the outer reading is current again";
}

TEST(EncoderFraming, ElapsedMillisecondsTruncatesTowardZeroAndNeverTraps) {
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

// ---- Golden packets, at least one per kind, each decoded and described by the packet decoder;
// a second row of a kind is held by its description alone. `codes[a]` is the code byte action
// `a` selects; action `codes.size()` is refused with "<encoder>, unknown type".

struct GoldenCase {
    const char* name;
    const char* decoded;  // the packet as the decoder describes it
    RemoteCtrlEvent event;
    size_t bufferSize;
    uint8_t capacity;
    Bytes expected;  // empty: the description holds the packet
    Bytes codes;
    std::string encoder;
};

std::vector<GoldenCase> GoldenCases() {
    std::vector<GoldenCase> cases;
    RemoteCtrlEvent mouse = Event(6);  // button down, type 6
    mouse.payload.mouse.button = 1;
    mouse.payload.mouse.coords[0] = 100.7;
    mouse.payload.mouse.coords[1] = 200.2;
    cases.push_back({"mouse",
                     "mouse_down button=1 at (100,200) coords=(100,200,0,0) ts=1234ms "
                     "[len=26 class=0 tag=0x00 flags=0x00]",
                     mouse, 105 + 4, 105, {
        0x00,                          // flags
        0x00,                          // class 0
        0x00, 0x1A,                    // packet length 26
        0x00,                          // tag
        0x00, 0x00, 0x00, 0x00, 0x00,  // reserved
        0x0E,                          // code 14: button down
        0x00, 0x09,                    // body length 9
        0x01,                          // button
        0x00, 0x64,                    // coords[0] 100.7 -> 100
        0x00, 0xC8,                    // coords[1] 200.2 -> 200
        0x00, 0x00, 0x00, 0x00,        // coords[2], coords[3]
        0x00, 0x00, 0x04, 0xD2,        // 1234 ms; 26 is even, no padding
    }, {14, 15, 16}, "ConstructMouseEvent"});

    RemoteCtrlEvent touch = Event(0);  // no pointers
    touch.payload.touch.action = 1;
    cases.push_back({"touch, no pointer",
                     "left_point_up pointers=0 ts=1234ms [len=18 class=0 tag=0x00 flags=0x00]",
                     touch, 109, 105, {}, {}, ""});

    touch.payload.touch.action = 2;  // one pointer: nine bytes reserved, padded
    touch.payload.touch.pointerCount = 1;
    touch.payload.touch.pointerIds[0] = 7;
    touch.payload.touch.x[0] = 300.9;
    touch.payload.touch.y[0] = -2.0;
    cases.push_back({"touch, one pointer",
                     "left_move pointers=1 id7(300,-2) ts=1234ms "
                     "[len=28 class=0 tag=0x00 flags=0x00 padded]",
                     touch, 109, 105, {
        0x00, 0x00, 0x00, 0x1C, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // header, length 28
        0x02,                    // code 2: move
        0x00, 0x0B,              // body length 9 + 1 + 1 (padding)
        0x01,                    // pointer count
        0x07,                    // id
        0x01, 0x2C,              // x 300.9 -> 300
        0xFF, 0xFE,              // y -2 -> 0xFFFE
        0x00, 0x00, 0x00, 0x00,  // the 4 reserved bytes of the pointer
        0x00, 0x00, 0x04, 0xD2,  // timestamp
        0x00,                    // padding: 13 + 4 is odd
    }, {}, ""});

    RemoteCtrlEvent key = Event(1);  // three values sent, the reserved word not
    key.payload.key.action = 1;
    key.payload.key.keyReserved = 0xFFFF;
    key.payload.key.keyValue1 = 0x0102;
    key.payload.key.keyValue2 = 0x0304;
    key.payload.key.keyValue3 = 0x05060708;
    cases.push_back({"key",
                     "left_key_up key=(258,772,84281096) ts=1234ms "
                     "[len=26 class=0 tag=0x00 flags=0x00]",
                     key, 109, 105, {
        0x00, 0x00, 0x00, 0x1A, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // header, length 26
        0x04,                    // code 4: key up
        0x00, 0x09,              // body length
        0x00,                    // always 0
        0x01, 0x02,              // keyValue1
        0x03, 0x04,              // keyValue2
        0x05, 0x06, 0x07, 0x08,  // keyValue3
        0x00, 0x00, 0x04, 0xD2,  // timestamp
    }, {3, 4}, "ConstructKeyEvent"});

    RemoteCtrlEvent zoom = Event(2);  // value low byte first
    zoom.payload.zoom.x = 10.9;
    zoom.payload.zoom.y = -3.2;
    zoom.payload.zoom.zoomValue = 0x1234;
    cases.push_back({"zoom",
                     "zoom at (10,-3) value=4660 ts=1234ms "
                     "[len=24 class=0 tag=0x00 flags=0x00 padded]",
                     zoom, 109, 105, {
        0x00, 0x00, 0x00, 0x18, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // header, length 24
        0x05,                    // code 5: zoom
        0x00, 0x07,              // body length: 6 field bytes + padding
        0x00, 0x0A,              // x 10.9 -> 10
        0xFF, 0xFD,              // y -3.2 -> -3
        0x34, 0x12,              // zoomValue, low byte first
        0x00, 0x00, 0x04, 0xD2,  // timestamp
        0x00,                    // padding
    }, {}, ""});

    RemoteCtrlEvent scroll = Event(3);
    scroll.payload.scroll.action = 1;
    scroll.payload.scroll.scrollValue = 0xABCD;
    cases.push_back({"scroll",
                     "horizontal_scroll value=43981 ts=1234ms "
                     "[len=20 class=0 tag=0x00 flags=0x00 padded]",
                     scroll, 109, 105, {
        0x00, 0x00, 0x00, 0x14, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // header, length 20
        0x07,                    // code 7: horizontal
        0x00, 0x03,              // body length: 2 field bytes + padding
        0xAB, 0xCD,              // scrollValue
        0x00, 0x00, 0x04, 0xD2,  // timestamp
        0x00,                    // padding
    }, {6, 7}, "ConstructScrollEvent"});

    RemoteCtrlEvent wheel = Event(8);  // button bits 1 and 2 move up by one
    wheel.payload.wheel.action = 1;
    wheel.payload.wheel.buttons = 0x07;
    wheel.payload.wheel.wheelValue = 0xFF88;
    wheel.payload.wheel.x = 640.0;
    wheel.payload.wheel.y = 480.5;
    cases.push_back({"wheel",
                     "horizontal_wheel buttons=0x07 value=65416 at (640,480) ts=1234ms "
                     "[len=24 class=0 tag=0x00 flags=0x00]",
                     wheel, 109, 105, {
        0x00, 0x00, 0x00, 0x18, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // header, length 24
        0x0D,                    // code 13: horizontal wheel
        0x00, 0x07,              // body length
        0x0D,                    // buttons 0b111 -> wire 0b1101
        0xFF, 0x88,              // wheelValue
        0x02, 0x80,              // x 640
        0x01, 0xE0,              // y 480.5 -> 480
        0x00, 0x00, 0x04, 0xD2,  // timestamp; 24 is even
    }, {}, ""});

    RemoteCtrlEvent virtualKey = Event(9);  // class three, codes two to five
    virtualKey.payload.virtualKey.action = 3;
    virtualKey.payload.virtualKey.x = 1.0;
    virtualKey.payload.virtualKey.y = 2.0;
    cases.push_back({"virtual key",
                     "virtualkey_quick_setting at (1,2) ts=1234ms "
                     "[len=22 class=3 tag=0x00 flags=0x00 padded]",
                     virtualKey, 109, 105, {
        0x00, 0x03, 0x00, 0x16, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // class 3, length 22
        0x05,                    // code 5: quick settings
        0x00, 0x05,              // body length: 4 field bytes + padding
        0x00, 0x01,              // x
        0x00, 0x02,              // y
        0x00, 0x00, 0x04, 0xD2,  // timestamp
        0x00,                    // padding
    }, {2, 3, 4, 5}, "ConstructVirtualKeyEvent"});

    RemoteCtrlEvent focus = Event(7);  // input focus: class two, code one
    focus.payload.input.action = 1;
    focus.payload.input.focus.focusFlag = 1;
    for (int i = 0; i < 4; ++i) focus.payload.input.focus.focusValues[i] = 1.0 + i;
    cases.push_back({"input focus",
                     "input_focus flag=1 values=(1,2,3,4) ts=1234ms "
                     "[len=26 class=2 tag=0x00 flags=0x00]",
                     focus, 489, 233, {}, {}, ""});

    RemoteCtrlEvent text = Event(7);
    text.payload.input.content.contentLength = 2;
    text.payload.input.content.content[0] = 'h';
    text.payload.input.content.content[1] = 'i';
    text.payload.input.content.content[2] = 'X';  // beyond the length: not sent
    cases.push_back({"short text",
                     "input_content length=2 text=\"hi\" ts=1234ms "
                     "[len=22 class=2 tag=0x00 flags=0x00 padded]",
                     text, 489, 233, {
        0x00, 0x02, 0x00, 0x16, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // class 2, length 22
        0x00,                    // code 0: content
        0x00, 0x05,              // body length: 2 + 2 + padding
        0x00, 0x02,              // content length
        'h', 'i',                // content
        0x00, 0x00, 0x04, 0xD2,  // timestamp
        0x00,                    // padding
    }, {0, 1}, "ConstructInputEvent"});

    RemoteCtrlEvent message = Event(10);
    message.payload.message.action = 1;
    message.payload.message.messageLength = 5;
    message.payload.message.messageWord = 0xBEEF;
    message.payload.message.messageData[0] = 'a';
    message.payload.message.messageData[1] = 'b';
    message.payload.message.messageData[2] = 'c';
    message.payload.message.messageData[3] = 'd';  // beyond the length: not sent
    cases.push_back({"short message",
                     "message_reserved word=0xBEEF length=5 data=\"abc\" ts=1234ms "
                     "[len=24 class=4 tag=0x00 flags=0x00]",
                     message, 491, 235, {
        0x00, 0x04, 0x00, 0x18, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // class 4, length 24
        0x07,                    // code 7: reserved message
        0x00, 0x07,              // body length: 5 + 2, no padding (5 + 5 + 4 is even)
        0x00, 0x05,              // message length
        0xBE, 0xEF,              // messageWord
        'a', 'b', 'c',           // data: length - 2 bytes
        0x00, 0x00, 0x04, 0xD2,  // timestamp
    }, {6, 7}, "ConstructMessageEvent"});
    return cases;
}

TEST(EncoderKinds, GoldenPacketsAndActionCodes) {
    for (GoldenCase& c : GoldenCases()) {
        const Bytes sent = Send(c.event, c.bufferSize, c.capacity).Packet();
        if (!c.expected.empty()) {
            EXPECT_EQ(sent, c.expected) << c.name;
        }
        OrbPerix::packet::DecodedPacket packet;
        std::string reason;
        EXPECT_TRUE(OrbPerix::packet::DecodePacket(sent.data(), sent.size(), &packet, &reason))
            << c.name << ": " << reason;
        EXPECT_EQ(OrbPerix::packet::Describe(packet), c.decoded) << c.name;
        if (c.codes.empty()) continue;
        // The action word leads every member of the payload.
        for (uint32_t action = 0; action < c.codes.size(); ++action) {
            c.event.payload.key.action = action;
            EXPECT_EQ(Send(c.event, c.bufferSize, c.capacity).buffer[10], c.codes[action])
                << c.name << " action " << action;
        }
        c.event.payload.key.action = static_cast<uint32_t>(c.codes.size());
        ClearLogs();
        EXPECT_EQ(Send(c.event, c.bufferSize, c.capacity).length, -1) << c.name;
        EXPECT_EQ(TraceLines(),
                  FailedBodyLines(ErrorLine(c.encoder + ", unknown type",
                                            "RemoteUtil::RemoteController::" + c.encoder)))
            << c.name;
    }
}

TEST(EncoderKinds, WheelSendsButtonBitsZeroToTwoOnly) {
    RemoteCtrlEvent event = Event(8);
    struct Case {
        uint8_t buttons;
        uint8_t wire;
    };
    const Case cases[] = {
        {0x00, 0x00}, {0x01, 0x01}, {0x02, 0x04}, {0x04, 0x08},
        {0x06, 0x0C}, {0xF8, 0x00},  // bits 3..7 are not sent
        {0xFF, 0x0D},
    };
    for (const Case& c : cases) {
        event.payload.wheel.buttons = c.buttons;
        const SendResult r = Send(event, 109, 105);
        EXPECT_EQ(r.buffer[10], 12);  // vertical wheel
        EXPECT_EQ(r.buffer[13], c.wire) << "buttons " << int{c.buttons};
    }
}

// ---- Touch (type 0).

RemoteCtrlEvent TouchWithPointers(uint8_t count) {
    RemoteCtrlEvent event = Event(0);
    event.payload.touch.action = 0;
    event.payload.touch.pointerCount = count;
    for (int i = 0; i < 10; ++i) {
        event.payload.touch.pointerIds[i] = static_cast<uint8_t>(i + 1);
        event.payload.touch.x[i] = 10.0 * (i + 1);
        event.payload.touch.y[i] = 1000.0 + i;
    }
    return event;
}

TEST(EncoderTouch, TenPointerTouchOverrunsCapacityByThree) {
    RemoteCtrlEvent event = TouchWithPointers(10);
    const SendResult result = Send(event, 105 + 8, 105);
    ASSERT_EQ(result.length, 108);
    // The timestamp lands on 104..107: three bytes past the capacity of 105.
    EXPECT_EQ(Bytes(result.buffer.begin() + 104, result.buffer.begin() + 108),
              (Bytes{0x00, 0x00, 0x04, 0xD2}));
    EXPECT_EQ(result.buffer[108], kGuard);
    // The decoder holds the header, the body length 9 * 10 + 1 and the zeroed reserved tail.
    OrbPerix::packet::DecodedPacket packet;
    std::string reason;
    ASSERT_TRUE(OrbPerix::packet::DecodePacket(result.buffer.data(), 108, &packet, &reason))
        << reason;
    EXPECT_EQ(packet.action, 0u);
    ASSERT_EQ(packet.pointers.size(), 10u);
    for (size_t i = 0; i < 10; ++i) {
        EXPECT_EQ(packet.pointers[i].id, i + 1) << "pointer " << i;
        EXPECT_EQ(packet.pointers[i].x, 10 * (i + 1)) << "pointer " << i;
        EXPECT_EQ(packet.pointers[i].y, 1000 + i) << "pointer " << i;
    }
}

TEST(EncoderTouch, ElevenPointersDoNotFitCapacity105) {
    RemoteCtrlEvent event = TouchWithPointers(11);
    ClearLogs();
    const SendResult result = Send(event, 109, 105);
    EXPECT_EQ(result.length, -1);
    EXPECT_EQ(TraceLines(), remote_test::FailedBodyLines(remote_test::ErrorLine(
                                "ConstructTouchEvent, buffer size is not enough",
                                "RemoteUtil::RemoteController::ConstructTouchEvent")));
    // Only the capacity was zeroed; nothing was written behind it.
    for (size_t at = 105; at < result.buffer.size(); ++at) {
        EXPECT_EQ(result.buffer[at], kGuard) << at;
    }
}

TEST(EncoderTouch, TouchBeyondTenPointersReadsOnThroughThePayload) {
    // Pointer i of a larger count sits where the arrays would continue: id 10 is the byte
    // behind pointerIds, x[10] is the first double of the y array, and y[10] the 8 payload
    // bytes behind the touch member.
    RemoteCtrlEvent event = TouchWithPointers(11);
    const double behindTouch = 77.0;
    std::memcpy(reinterpret_cast<unsigned char*>(&event.payload) + sizeof(RemoteTouchEvent),
                &behindTouch, sizeof(behindTouch));
    const SendResult result = Send(event, 255 + 4, 255);
    ASSERT_EQ(result.length, 10 + 9 * 11 + 4 + 4 + 1);  // header, body, timestamp, padding
    const size_t at = 14 + 5 * 10;
    EXPECT_EQ(result.buffer[at], 0);         // the alignment byte after pointerIds
    EXPECT_EQ(result.buffer[at + 1], 0x03);  // x[10] is y[0] = 1000 -> 0x03E8
    EXPECT_EQ(result.buffer[at + 2], 0xE8);
    EXPECT_EQ(result.buffer[at + 3], 0x00);  // y[10] = 77
    EXPECT_EQ(result.buffer[at + 4], 77);
}

TEST(EncoderTouch, TouchUnknownActionIsCheckedAfterCapacity) {
    RemoteCtrlEvent event = TouchWithPointers(1);
    event.payload.touch.action = 3;
    ExpectRefusal(event, 109, 105,
                  FailedBodyLines(ErrorLine("ConstructTouchEvent, unknown type",
                                            "RemoteUtil::RemoteController::ConstructTouchEvent")));

    event.payload.touch.pointerCount = 11;  // both wrong: the capacity message wins
    ClearLogs();
    EXPECT_EQ(Send(event, 109, 105).length, -1);
    EXPECT_EQ(TraceLines().front(),
              remote_test::ErrorLine("ConstructTouchEvent, buffer size is not enough",
                                     "RemoteUtil::RemoteController::ConstructTouchEvent"));
}

struct LengthCase {
    uint16_t length;
    int result;                 // packet length or -1
    std::string firstLog;       // expected first log line text (empty: none)
};

// Text input (type 7) and messages (type 10) with the capacities the input provider passes
// (233 and 235 of 489- and 491-byte buffers). The data starts behind the text's 5-byte head
// and behind the message's 7-byte head (its word counts in its length).
TEST(EncoderText, TextInputAndMessageLimitsAtTheProviderCapacities) {
    const std::string noPadding =
        "DoPaddingOperation, invalid memory for padding(RemoteUtil::DoPaddingOperation)";
    struct Kind {
        uint32_t type;
        size_t bufferSize;
        uint8_t capacity;
        size_t dataAt;
        size_t headLength;  // length bytes that are not data
        std::string tooLarge;
        std::string notValid;
        std::vector<LengthCase> cases;
    };
    const Kind kinds[] = {
        {7, 489, 233, 15, 0,
         "ConstructInputContentEvent , msg length too large(" + kContentScope + ")",
         "ConstructInputContentEvent, param not valid(" + kContentScope + ")",
         {{0, -1, "tooLarge"},    {1, 20, ""},          {2, 22, ""},
          {211, 230, ""},         {212, 232, ""},       {213, 232, ""},
          {214, -1, noPadding},   {215, 234, ""},       {216, -1, noPadding},
          {217, 236, ""},         {218, -1, "notValid"}, {472, -1, "notValid"},
          {473, -1, "tooLarge"},  {0xFFFF, -1, "tooLarge"}}},
        {10, 491, 235, 17, 2,
         "ConstructInputEvent , msg length too large(" + kMessageScope + ")",
         "ConstructMessageEvent, param not valid(" + kMessageScope + ")",
         {{0, -1, "tooLarge"},   {2, -1, "tooLarge"},   {3, 22, ""},
          {4, 24, ""},           {213, 232, ""},        {214, 234, ""},
          {216, -1, noPadding},  {217, 236, ""},        {218, -1, noPadding},
          {219, 238, ""},        {220, -1, "notValid"}, {472, -1, "notValid"},
          {473, -1, "tooLarge"}}},
    };
    for (const Kind& kind : kinds) {
        for (const LengthCase& c : kind.cases) {
            RemoteCtrlEvent event = Event(kind.type);
            uint8_t* data = kind.type == 7 ? event.payload.input.content.content
                                           : event.payload.message.messageData;
            if (kind.type == 7) {
                event.payload.input.content.contentLength = c.length;
            } else {
                event.payload.message.messageLength = c.length;
                event.payload.message.messageWord = 0x0102;
            }
            for (size_t i = 0; i < 472; ++i) data[i] = static_cast<uint8_t>('A' + i % 26);
            ClearLogs();
            const SendResult result = Send(event, kind.bufferSize, kind.capacity);
            EXPECT_EQ(result.length, c.result) << "type " << kind.type << " length " << c.length;
            // Only the reduced capacity is used: behind the packet, the 489-byte text buffer
            // keeps what it held. (A body that failed its padding still had its timestamp
            // written, up to 233 + 4.)
            const size_t end = c.result > 0 ? std::max<size_t>(static_cast<size_t>(c.result), 233)
                                            : 233 + 4;
            for (size_t at = end; kind.type == 7 && at < result.buffer.size(); ++at) {
                ASSERT_EQ(result.buffer[at], kGuard) << "length " << c.length << " byte " << at;
            }
            const std::vector<std::string> texts = TraceTexts();
            if (c.firstLog.empty()) {
                EXPECT_TRUE(texts.empty()) << "length " << c.length;
                ASSERT_GT(result.length, 0);
                for (size_t i = 0; i + kind.headLength < c.length; ++i) {
                    ASSERT_EQ(result.buffer[kind.dataAt + i], 'A' + i % 26) << "length " << c.length;
                }
                continue;
            }
            const std::string first = c.firstLog == "tooLarge"   ? kind.tooLarge
                                      : c.firstLog == "notValid" ? kind.notValid
                                                                 : c.firstLog;
            ASSERT_FALSE(texts.empty());
            EXPECT_EQ(texts.front(), first) << "type " << kind.type << " length " << c.length;
            EXPECT_EQ(texts.back(),
                      "ConstructRemoteCtrlPacket, bodylength invalid(" + kPacketScope + ")");
        }
    }
}

TEST(EncoderText, MessageLengthIsCheckedBeforeTheAction) {
    RemoteCtrlEvent event = Event(10);
    event.payload.message.action = 9;
    event.payload.message.messageLength = 2;
    ExpectRefusal(event, 491, 235,
                  FailedBodyLines(ErrorLine("ConstructInputEvent , msg length too large", kMessageScope)));
}

// The longest texts are only reachable through the controller's 16-bit capacity.
TEST(EncoderText, LongestTextAndMessageWithALargeCapacity) {
    RemoteUtil::RemoteController controller;
    const remote_test::TimeBase base = remote_test::TimeBaseAt(1234);
    std::vector<uint8_t> buffer(600 + 4, kGuard);

    RemoteCtrlEvent text = Event(7);
    text.payload.input.content.contentLength = 472;
    text.payload.input.content.content[471] = 0x5A;
    EXPECT_EQ(controller.ConstructRemoteCtrlPacket(&text, buffer.data(), 600, base.start,
                                                   base.frequency),
              10 + 477 + 4 + 1);
    EXPECT_EQ(buffer[15 + 471], 0x5A);
    EXPECT_EQ(buffer[11], 0x01);  // body length 472 + 2 + 1 = 475 = 0x01DB
    EXPECT_EQ(buffer[12], 0xDB);

    RemoteCtrlEvent message = Event(10);
    message.payload.message.messageLength = 472;
    message.payload.message.messageData[469] = 0x5B;
    EXPECT_EQ(controller.ConstructRemoteCtrlPacket(&message, buffer.data(), 600, base.start,
                                                   base.frequency),
              10 + 477 + 4 + 1);
    EXPECT_EQ(buffer[17 + 469], 0x5B);
}

// ---- The exported sender: argument checks, the singleton, the 8-bit capacity, concurrent use.

TEST(EncoderSender, NullEventOrBufferIsRefusedAndTheBufferUntouched) {
    RemoteUtil::RemoteEvent* sender = RemoteUtil::RemoteEvent::GetInstance();
    ASSERT_NE(sender, nullptr);
    const remote_test::TimeBase base = remote_test::TimeBaseAt(0);
    std::vector<uint8_t> buffer(109, kGuard);
    RemoteCtrlEvent event = Event(6);
    ClearLogs();
    EXPECT_EQ(sender->SendRemoteCtrlEvent(nullptr, buffer.data(), 105, base.start,
                                          base.frequency),
              -1);
    EXPECT_EQ(sender->SendRemoteCtrlEvent(&event, nullptr, 105, base.start, base.frequency), -1);
    EXPECT_EQ(buffer, std::vector<uint8_t>(109, kGuard));
    const LogLine line{4,
                       "SendRemoteCtrlEvent event is nullptr"
                       "(RemoteUtil::RemoteEvent::SendRemoteCtrlEvent)"};
    EXPECT_EQ(TraceLines(), (std::vector<LogLine>{line, line}));
}

// Many threads share the one sender; each packet must be exactly its own event's.
TEST(EncoderSender, ConcurrentSendersBuildIndependentPackets) {
    constexpr int kThreads = 8;
    constexpr int kPerThread = 2000;
    RemoteUtil::RemoteEvent* const first = RemoteUtil::RemoteEvent::GetInstance();
    ASSERT_NE(first, nullptr);
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, first, &mismatches] {
            const remote_test::TimeBase base = remote_test::TimeBaseAt(0);
            RemoteUtil::RemoteEvent* sender = RemoteUtil::RemoteEvent::GetInstance();
            if (sender != first) ++mismatches;
            for (int i = 0; i < kPerThread; ++i) {
                RemoteCtrlEvent event = Event(6);
                event.headerTag = static_cast<uint32_t>(t);
                event.payload.mouse.action = static_cast<uint32_t>(i % 3);
                event.payload.mouse.coords[0] = i;
                std::vector<uint8_t> buffer(109, kGuard);
                const int length = sender->SendRemoteCtrlEvent(&event, buffer.data(), 105,
                                                               base.start, base.frequency);
                OrbPerix::packet::DecodedPacket packet;
                if (length != 26 ||
                    !OrbPerix::packet::DecodePacket(buffer.data(), 26, &packet, nullptr) ||
                    packet.tag != t || packet.action != static_cast<uint32_t>(i % 3) ||
                    packet.values[0] != static_cast<uint16_t>(i)) {
                    ++mismatches;
                }
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(mismatches.load(), 0);
}
}  // namespace
