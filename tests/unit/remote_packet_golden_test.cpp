// Exact packet bytes per event kind, built through the exported sender with a controlled time
// base so that every packet carries the timestamp 1234 ms (00 00 04 D2).
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "remote_test_helpers.h"

namespace {

using remote_test::kGuard;
using remote_test::Send;
using remote_test::SendResult;
using remote_test::ZeroEvent;
using Bytes = std::vector<uint8_t>;

TEST(RemoteGolden, MouseButtonDownIsTheTwentySixByteExample) {
    RemoteCtrlEvent event = ZeroEvent(6);
    event.payload.mouse.action = 0;
    event.payload.mouse.button = 1;
    event.payload.mouse.coords[0] = 100.7;
    event.payload.mouse.coords[1] = 200.2;
    const SendResult result = Send(event, 105 + 4, 105);
    const Bytes expected = {
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
    };
    EXPECT_EQ(result.length, 26);
    EXPECT_EQ(result.Packet(), expected);
}

TEST(RemoteGolden, MouseActionsSelectTheirCodesAndOthersFail) {
    const uint8_t codes[] = {14, 15, 16};
    for (uint32_t action = 0; action < 3; ++action) {
        RemoteCtrlEvent event = ZeroEvent(6);
        event.payload.mouse.action = action;
        const SendResult result = Send(event, 109, 105);
        ASSERT_EQ(result.length, 26) << "action " << action;
        EXPECT_EQ(result.buffer[10], codes[action]) << "action " << action;
    }
    RemoteCtrlEvent event = ZeroEvent(6);
    event.payload.mouse.action = 3;
    ClearLogs();
    EXPECT_EQ(Send(event, 109, 105).length, -1);
    EXPECT_EQ(TraceLines(), remote_test::FailedBodyLines(remote_test::ErrorLine(
                                "ConstructMouseEvent, unknown type",
                                "RemoteUtil::RemoteController::ConstructMouseEvent")));
}

TEST(RemoteGolden, TouchWithoutPointersIsEighteenBytes) {
    RemoteCtrlEvent event = ZeroEvent(0);
    event.payload.touch.action = 1;
    const SendResult result = Send(event, 109, 105);
    const Bytes expected = {
        0x00, 0x00, 0x00, 0x12, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // header, length 18
        0x0F,                    // code 15: pointer up
        0x00, 0x01,              // body length 9*0 + 1
        0x00,                    // pointer count
        0x00, 0x00, 0x04, 0xD2,  // timestamp; 4 + 4 is even
    };
    EXPECT_EQ(result.length, 18);
    EXPECT_EQ(result.Packet(), expected);
}

TEST(RemoteGolden, TouchWithOnePointerReservesNineBytesAndPads) {
    RemoteCtrlEvent event = ZeroEvent(0);
    event.payload.touch.action = 2;
    event.payload.touch.pointerCount = 1;
    event.payload.touch.pointerIds[0] = 7;
    event.payload.touch.x[0] = 300.9;
    event.payload.touch.y[0] = -2.0;
    const SendResult result = Send(event, 109, 105);
    const Bytes expected = {
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
    };
    EXPECT_EQ(result.length, 28);
    EXPECT_EQ(result.Packet(), expected);
}

RemoteCtrlEvent TouchWithPointers(uint8_t count) {
    RemoteCtrlEvent event = ZeroEvent(0);
    event.payload.touch.action = 0;
    event.payload.touch.pointerCount = count;
    for (int i = 0; i < 10; ++i) {
        event.payload.touch.pointerIds[i] = static_cast<uint8_t>(i + 1);
        event.payload.touch.x[i] = 10.0 * (i + 1);
        event.payload.touch.y[i] = 1000.0 + i;
    }
    return event;
}

TEST(RemoteGolden, TenPointerTouchOverrunsCapacityByThree) {
    RemoteCtrlEvent event = TouchWithPointers(10);
    const SendResult result = Send(event, 105 + 8, 105);
    ASSERT_EQ(result.length, 108);
    const Bytes header = {0x00, 0x00, 0x00, 0x6C, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
    EXPECT_EQ(Bytes(result.buffer.begin(), result.buffer.begin() + 10), header);
    EXPECT_EQ(result.buffer[10], 14);   // pointer down
    EXPECT_EQ(result.buffer[11], 0x00);  // body length 91 = 9*10 + 1
    EXPECT_EQ(result.buffer[12], 91);
    EXPECT_EQ(result.buffer[13], 10);   // pointer count
    for (int i = 0; i < 10; ++i) {
        const size_t at = 14 + 5 * static_cast<size_t>(i);
        const int x = 10 * (i + 1);
        const int y = 1000 + i;
        EXPECT_EQ(result.buffer[at], i + 1) << "id of pointer " << i;
        EXPECT_EQ(result.buffer[at + 1], x >> 8) << "pointer " << i;
        EXPECT_EQ(result.buffer[at + 2], x & 0xFF) << "pointer " << i;
        EXPECT_EQ(result.buffer[at + 3], y >> 8) << "pointer " << i;
        EXPECT_EQ(result.buffer[at + 4], y & 0xFF) << "pointer " << i;
    }
    // Bytes 4 + 5n to 9n + 3 of the body (packet 64..103) are the reserved tail.
    for (size_t at = 64; at < 104; ++at) {
        EXPECT_EQ(result.buffer[at], 0) << "reserved byte " << at;
    }
    // The timestamp lands on 104..107: three bytes past the capacity of 105.
    EXPECT_EQ(Bytes(result.buffer.begin() + 104, result.buffer.begin() + 108),
              (Bytes{0x00, 0x00, 0x04, 0xD2}));
    EXPECT_EQ(result.buffer[108], kGuard);
}

TEST(RemoteGolden, ElevenPointersDoNotFitCapacity105) {
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

TEST(RemoteGolden, TouchBeyondTenPointersReadsOnThroughThePayload) {
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

TEST(RemoteGolden, TouchUnknownActionIsCheckedAfterCapacity) {
    RemoteCtrlEvent event = TouchWithPointers(1);
    event.payload.touch.action = 3;
    ClearLogs();
    EXPECT_EQ(Send(event, 109, 105).length, -1);
    EXPECT_EQ(TraceLines(), remote_test::FailedBodyLines(remote_test::ErrorLine(
                                "ConstructTouchEvent, unknown type",
                                "RemoteUtil::RemoteController::ConstructTouchEvent")));

    event.payload.touch.pointerCount = 11;  // both wrong: the capacity message wins
    ClearLogs();
    EXPECT_EQ(Send(event, 109, 105).length, -1);
    EXPECT_EQ(TraceLines().front(),
              remote_test::ErrorLine("ConstructTouchEvent, buffer size is not enough",
                                     "RemoteUtil::RemoteController::ConstructTouchEvent"));
}

TEST(RemoteGolden, ZoomIsTwentyFourBytesWithItsValueLowByteFirst) {
    RemoteCtrlEvent event = ZeroEvent(2);
    event.payload.zoom.x = 10.9;
    event.payload.zoom.y = -3.2;
    event.payload.zoom.zoomValue = 0x1234;
    const SendResult result = Send(event, 109, 105);
    const Bytes expected = {
        0x00, 0x00, 0x00, 0x18, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // header, length 24
        0x05,                    // code 5: zoom
        0x00, 0x07,              // body length: 6 field bytes + padding
        0x00, 0x0A,              // x 10.9 -> 10
        0xFF, 0xFD,              // y -3.2 -> -3
        0x34, 0x12,              // zoomValue, low byte first
        0x00, 0x00, 0x04, 0xD2,  // timestamp
        0x00,                    // padding
    };
    EXPECT_EQ(result.length, 24);
    EXPECT_EQ(result.Packet(), expected);
}

TEST(RemoteGolden, KeySendsItsThreeValuesButNotTheReservedWord) {
    RemoteCtrlEvent event = ZeroEvent(1);
    event.payload.key.action = 1;
    event.payload.key.keyReserved = 0xFFFF;
    event.payload.key.keyValue1 = 0x0102;
    event.payload.key.keyValue2 = 0x0304;
    event.payload.key.keyValue3 = 0x05060708;
    const SendResult result = Send(event, 109, 105);
    const Bytes expected = {
        0x00, 0x00, 0x00, 0x1A, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // header, length 26
        0x04,                    // code 4: key up
        0x00, 0x09,              // body length
        0x00,                    // always 0
        0x01, 0x02,              // keyValue1
        0x03, 0x04,              // keyValue2
        0x05, 0x06, 0x07, 0x08,  // keyValue3
        0x00, 0x00, 0x04, 0xD2,  // timestamp
    };
    EXPECT_EQ(result.length, 26);
    EXPECT_EQ(result.Packet(), expected);

    event.payload.key.action = 0;
    EXPECT_EQ(Send(event, 109, 105).buffer[10], 3);  // key down
    event.payload.key.action = 2;
    ClearLogs();
    EXPECT_EQ(Send(event, 109, 105).length, -1);
    EXPECT_TRUE(HasTraceLine(
        "ConstructKeyEvent, unknown type(RemoteUtil::RemoteController::ConstructKeyEvent)"));
}

TEST(RemoteGolden, ScrollIsTwentyBytesWithPadding) {
    RemoteCtrlEvent event = ZeroEvent(3);
    event.payload.scroll.action = 1;
    event.payload.scroll.scrollValue = 0xABCD;
    const SendResult result = Send(event, 109, 105);
    const Bytes expected = {
        0x00, 0x00, 0x00, 0x14, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // header, length 20
        0x07,                    // code 7: horizontal
        0x00, 0x03,              // body length: 2 field bytes + padding
        0xAB, 0xCD,              // scrollValue
        0x00, 0x00, 0x04, 0xD2,  // timestamp
        0x00,                    // padding
    };
    EXPECT_EQ(result.length, 20);
    EXPECT_EQ(result.Packet(), expected);

    event.payload.scroll.action = 0;
    EXPECT_EQ(Send(event, 109, 105).buffer[10], 6);  // vertical
    event.payload.scroll.action = 2;
    ClearLogs();
    EXPECT_EQ(Send(event, 109, 105).length, -1);
    EXPECT_TRUE(HasTraceLine(
        "ConstructScrollEvent, unknown type(RemoteUtil::RemoteController::ConstructScrollEvent)"));
}

TEST(RemoteGolden, WheelMovesButtonBitsOneAndTwoUpByOne) {
    RemoteCtrlEvent event = ZeroEvent(8);
    event.payload.wheel.action = 1;
    event.payload.wheel.buttons = 0x07;
    event.payload.wheel.wheelValue = 0xFF88;
    event.payload.wheel.x = 640.0;
    event.payload.wheel.y = 480.5;
    const SendResult result = Send(event, 109, 105);
    const Bytes expected = {
        0x00, 0x00, 0x00, 0x18, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // header, length 24
        0x0D,                    // code 13: horizontal wheel
        0x00, 0x07,              // body length
        0x0D,                    // buttons 0b111 -> wire 0b1101
        0xFF, 0x88,              // wheelValue
        0x02, 0x80,              // x 640
        0x01, 0xE0,              // y 480.5 -> 480
        0x00, 0x00, 0x04, 0xD2,  // timestamp; 24 is even
    };
    EXPECT_EQ(result.length, 24);
    EXPECT_EQ(result.Packet(), expected);

    struct Case {
        uint8_t buttons;
        uint8_t wire;
    };
    const Case cases[] = {
        {0x00, 0x00}, {0x01, 0x01}, {0x02, 0x04}, {0x04, 0x08},
        {0x06, 0x0C}, {0xF8, 0x00},  // bits 3..7 are not sent
        {0xFF, 0x0D},
    };
    event.payload.wheel.action = 0;
    for (const Case& c : cases) {
        event.payload.wheel.buttons = c.buttons;
        const SendResult r = Send(event, 109, 105);
        EXPECT_EQ(r.buffer[10], 12);  // vertical wheel
        EXPECT_EQ(r.buffer[13], c.wire) << "buttons " << int{c.buttons};
    }
}

TEST(RemoteGolden, VirtualKeysUseClassThreeAndCodesTwoToFive) {
    RemoteCtrlEvent event = ZeroEvent(9);
    event.payload.virtualKey.action = 3;
    event.payload.virtualKey.x = 1.0;
    event.payload.virtualKey.y = 2.0;
    const SendResult result = Send(event, 109, 105);
    const Bytes expected = {
        0x00, 0x03, 0x00, 0x16, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // class 3, length 22
        0x05,                    // code 5: quick settings
        0x00, 0x05,              // body length: 4 field bytes + padding
        0x00, 0x01,              // x
        0x00, 0x02,              // y
        0x00, 0x00, 0x04, 0xD2,  // timestamp
        0x00,                    // padding
    };
    EXPECT_EQ(result.length, 22);
    EXPECT_EQ(result.Packet(), expected);

    for (uint32_t action = 0; action < 4; ++action) {
        event.payload.virtualKey.action = action;
        EXPECT_EQ(Send(event, 109, 105).buffer[10], action + 2);
    }
    event.payload.virtualKey.action = 4;
    ClearLogs();
    EXPECT_EQ(Send(event, 109, 105).length, -1);
    EXPECT_TRUE(HasTraceLine("ConstructVirtualKeyEvent, unknown type"
                             "(RemoteUtil::RemoteController::ConstructVirtualKeyEvent)"));
}

TEST(RemoteGolden, InputFocusUsesClassTwoCodeOne) {
    RemoteCtrlEvent event = ZeroEvent(7);
    event.payload.input.action = 1;
    event.payload.input.focus.focusFlag = 1;
    event.payload.input.focus.focusValues[0] = 1.0;
    event.payload.input.focus.focusValues[1] = 2.0;
    event.payload.input.focus.focusValues[2] = 3.0;
    event.payload.input.focus.focusValues[3] = 4.0;
    const SendResult result = Send(event, 489, 233);
    const Bytes expected = {
        0x00, 0x02, 0x00, 0x1A, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // class 2, length 26
        0x01,                    // code 1: focus
        0x00, 0x09,              // body length
        0x01,                    // focusFlag
        0x00, 0x01, 0x00, 0x02, 0x00, 0x03, 0x00, 0x04,  // focusValues
        0x00, 0x00, 0x04, 0xD2,  // timestamp
    };
    EXPECT_EQ(result.length, 26);
    EXPECT_EQ(result.Packet(), expected);

    event.payload.input.action = 2;
    ClearLogs();
    EXPECT_EQ(Send(event, 489, 233).length, -1);
    EXPECT_TRUE(HasTraceLine(
        "ConstructInputEvent, unknown type(RemoteUtil::RemoteController::ConstructInputEvent)"));
}

TEST(RemoteGolden, ShortTextInput) {
    RemoteCtrlEvent event = ZeroEvent(7);
    event.payload.input.content.contentLength = 2;
    event.payload.input.content.content[0] = 'h';
    event.payload.input.content.content[1] = 'i';
    event.payload.input.content.content[2] = 'X';  // beyond the length: not sent
    const SendResult result = Send(event, 489, 233);
    const Bytes expected = {
        0x00, 0x02, 0x00, 0x16, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // class 2, length 22
        0x00,                    // code 0: content
        0x00, 0x05,              // body length: 2 + 2 + padding
        0x00, 0x02,              // content length
        'h', 'i',                // content
        0x00, 0x00, 0x04, 0xD2,  // timestamp
        0x00,                    // padding
    };
    EXPECT_EQ(result.length, 22);
    EXPECT_EQ(result.Packet(), expected);
}

TEST(RemoteGolden, ShortMessage) {
    RemoteCtrlEvent event = ZeroEvent(10);
    event.payload.message.action = 1;
    event.payload.message.messageLength = 5;
    event.payload.message.messageWord = 0xBEEF;
    event.payload.message.messageData[0] = 'a';
    event.payload.message.messageData[1] = 'b';
    event.payload.message.messageData[2] = 'c';
    event.payload.message.messageData[3] = 'd';  // beyond the length: not sent
    const SendResult result = Send(event, 491, 235);
    const Bytes expected = {
        0x00, 0x04, 0x00, 0x18, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // class 4, length 24
        0x07,                    // code 7: reserved message
        0x00, 0x07,              // body length: 5 + 2, no padding (5 + 5 + 4 is even)
        0x00, 0x05,              // message length
        0xBE, 0xEF,              // messageWord
        'a', 'b', 'c',           // data: length - 2 bytes
        0x00, 0x00, 0x04, 0xD2,  // timestamp
    };
    EXPECT_EQ(result.length, 24);
    EXPECT_EQ(result.Packet(), expected);

    event.payload.message.action = 0;
    EXPECT_EQ(Send(event, 491, 235).buffer[10], 6);  // extend
    event.payload.message.action = 2;
    ClearLogs();
    EXPECT_EQ(Send(event, 491, 235).length, -1);
    EXPECT_TRUE(HasTraceLine("ConstructMessageEvent, unknown type"
                             "(RemoteUtil::RemoteController::ConstructMessageEvent)"));
}

// Coordinates: truncated to int32 (0 when out of range or NaN), low 16 bits, high byte first.
TEST(RemoteGolden, CoordinateConversionSweep) {
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
        RemoteCtrlEvent event = ZeroEvent(6);
        event.payload.mouse.coords[2] = c.value;
        const SendResult result = Send(event, 109, 105);
        ASSERT_EQ(result.length, 26);
        EXPECT_EQ(result.buffer[18], c.wire >> 8) << c.value;
        EXPECT_EQ(result.buffer[19], c.wire & 0xFF) << c.value;
    }
}

TEST(RemoteGolden, HeaderFlagsMapThreeBitsAndTagCopiesTheLowByte) {
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
        RemoteCtrlEvent event = ZeroEvent(3);
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

TEST(RemoteGolden, TimestampIsBigEndianMilliseconds) {
    RemoteCtrlEvent event = ZeroEvent(6);
    for (int64_t ms : {int64_t{0}, int64_t{1}, int64_t{0xABCDEF}}) {
        const SendResult result = Send(event, 109, 105, ms);
        ASSERT_EQ(result.length, 26);
        const Bytes expected = {static_cast<uint8_t>(ms >> 24), static_cast<uint8_t>(ms >> 16),
                                static_cast<uint8_t>(ms >> 8), static_cast<uint8_t>(ms)};
        EXPECT_EQ(Bytes(result.buffer.begin() + 22, result.buffer.begin() + 26), expected) << ms;
    }
}

}  // namespace
