// The packet decoder against the encoder (every kind and action) and against malformed
// packets, each rejected with its reason.
#include <gtest/gtest.h>

#include <functional>

#include "packet_decoder.h"
#include "remote_test_helpers.h"

namespace {

using OrbPerix::packet::DecodedPacket;
using OrbPerix::packet::DecodePacket;
using OrbPerix::packet::Describe;
using OrbPerix::packet::Kind;
using remote_test::Send;
using remote_test::SendResult;
using remote_test::Event;
using Bytes = std::vector<uint8_t>;

DecodedPacket EncodeAndDecode(RemoteCtrlEvent& event, uint8_t capacity) {
    const SendResult sent = Send(event, 255 + 4, capacity);
    EXPECT_GT(sent.length, 0) << "type " << event.type;
    DecodedPacket packet;
    std::string reason;
    const Bytes bytes = sent.Packet();
    EXPECT_TRUE(DecodePacket(bytes.data(), bytes.size(), &packet, &reason)) << reason;
    EXPECT_EQ(packet.timestampMs, 1234u);
    EXPECT_EQ(packet.length, bytes.size());
    EXPECT_EQ(packet.type, event.type);
    return packet;
}

TEST(RemotePacketDecoder, RoundTripsEveryKindAndAction) {
    struct Expect {
        uint32_t type;
        uint32_t action;
        const std::string* name;  // the library's published text for this kind and action
    };
    const Expect all[] = {
        {0, 0, &LEFT_POINT_DOWN}, {0, 1, &LEFT_POINT_UP},   {0, 2, &LEFT_MOVE},
        {1, 0, &LEFT_KEY_DOWN},   {1, 1, &LEFT_KEY_UP},     {2, 0, &ZOOM},
        {3, 0, &VERTICAL_SCROLL}, {3, 1, &HORIZONTAL_SCROLL},
        {6, 0, &MOUSE_DOWN},      {6, 1, &MOUSE_UP},        {6, 2, &MOUSE_MOVE},
        {7, 0, &INPUT_CONTENT},   {7, 1, &INPUT_FOCUS},
        {8, 0, &VERTICAL_WHEEL},  {8, 1, &HORIZONTAL_WHEEL},
        {9, 0, &VIRTUALKEY_BACK}, {9, 1, &VIRTUALKEY_HOME},
        {9, 2, &VIRTUALKEY_RECENT_APP}, {9, 3, &VIRTUALKEY_QUICK_SETTING},
        {10, 0, &MESSAGE_EXTEND}, {10, 1, &MESSAGE_RESERVED},
    };
    for (const Expect& e : all) {
        SCOPED_TRACE(*e.name);
        RemoteCtrlEvent event = Event(e.type);
        event.headerFlags = 0x28;
        event.headerTag = 0x3C;
        uint8_t capacity = 105;
        switch (e.type) {
            case 0:
                event.payload.touch.action = e.action;
                event.payload.touch.pointerCount = 3;
                for (int i = 0; i < 3; ++i) {
                    event.payload.touch.pointerIds[i] = static_cast<uint8_t>(20 + i);
                    event.payload.touch.x[i] = 100.0 * i - 50.0;
                    event.payload.touch.y[i] = 70000.0 + i;
                }
                break;
            case 1:
                event.payload.key.action = e.action;
                event.payload.key.keyValue1 = 0xA1A2;
                event.payload.key.keyValue2 = 0xB1B2;
                event.payload.key.keyValue3 = 0xC1C2C3C4;
                break;
            case 2:
                event.payload.zoom.x = -7.7;
                event.payload.zoom.y = 8.8;
                event.payload.zoom.zoomValue = 0x0102;
                break;
            case 3:
                event.payload.scroll.action = e.action;
                event.payload.scroll.scrollValue = 0x8001;
                break;
            case 6:
                event.payload.mouse.action = e.action;
                event.payload.mouse.button = 2;
                event.payload.mouse.coords[0] = 1.0;
                event.payload.mouse.coords[1] = 2.0;
                event.payload.mouse.coords[2] = -3.0;
                event.payload.mouse.coords[3] = 4.0;
                break;
            case 7:
                event.payload.input.action = e.action;
                capacity = 233;
                if (e.action == 0) {
                    event.payload.input.content.contentLength = 5;
                    std::memcpy(event.payload.input.content.content, "h\"i\n!", 5);
                } else {
                    event.payload.input.focus.focusFlag = 9;
                    event.payload.input.focus.focusValues[3] = 65535.0;
                }
                break;
            case 8:
                event.payload.wheel.action = e.action;
                event.payload.wheel.buttons = 0x05;
                event.payload.wheel.wheelValue = 0x0078;
                event.payload.wheel.x = 12.0;
                event.payload.wheel.y = 13.0;
                break;
            case 9:
                event.payload.virtualKey.action = e.action;
                event.payload.virtualKey.x = 30.0;
                event.payload.virtualKey.y = 40.0;
                break;
            case 10:
                event.payload.message.action = e.action;
                event.payload.message.messageLength = 6;
                event.payload.message.messageWord = 0x1234;
                std::memcpy(event.payload.message.messageData, "wxyz", 4);
                capacity = 235;
                break;
        }
        const DecodedPacket p = EncodeAndDecode(event, capacity);
        EXPECT_EQ(p.action, e.action);
        EXPECT_EQ(p.name, *e.name);
        EXPECT_EQ(p.headerFlags, 0x28u);
        EXPECT_EQ(p.tag, 0x3C);
        switch (e.type) {
            case 0:
                ASSERT_EQ(p.pointers.size(), 3u);
                EXPECT_EQ(p.pointers[2].id, 22);
                EXPECT_EQ(p.pointers[0].x, 0xFFCE);  // -50
                EXPECT_EQ(p.pointers[2].x, 150);
                EXPECT_EQ(p.pointers[1].y, 0x1171);  // 70001
                break;
            case 1:
                EXPECT_EQ(p.keyValue1, 0xA1A2);
                EXPECT_EQ(p.keyValue2, 0xB1B2);
                EXPECT_EQ(p.keyValue3, 0xC1C2C3C4u);
                break;
            case 2:
                EXPECT_EQ(p.x, 0xFFF9);
                EXPECT_EQ(p.y, 8);
                EXPECT_EQ(p.zoomValue, 0x0102);
                break;
            case 3:
                EXPECT_EQ(p.scrollValue, 0x8001);
                break;
            case 6:
                EXPECT_EQ(p.button, 2);
                EXPECT_EQ(p.values[2], 0xFFFD);
                EXPECT_EQ(p.values[3], 4);
                break;
            case 7:
                if (e.action == 0) {
                    EXPECT_EQ(p.data, (Bytes{'h', '"', 'i', '\n', '!'}));
                } else {
                    EXPECT_EQ(p.focusFlag, 9);
                    EXPECT_EQ(p.values[3], 0xFFFF);
                }
                break;
            case 8:
                EXPECT_EQ(p.buttons, 0x05);
                EXPECT_EQ(p.wireButtons, 0x09);
                EXPECT_EQ(p.wheelValue, 0x78);
                EXPECT_EQ(p.x, 12);
                EXPECT_EQ(p.y, 13);
                break;
            case 9:
                EXPECT_EQ(p.x, 30);
                EXPECT_EQ(p.y, 40);
                break;
            case 10:
                EXPECT_EQ(p.messageWord, 0x1234);
                EXPECT_EQ(p.data, (Bytes{'w', 'x', 'y', 'z'}));
                break;
        }
    }
}

TEST(RemotePacketDecoder, DescribesTheMouseExampleAtAGlance) {
    const Bytes mouse = {0x00, 0x00, 0x00, 0x1A, 0x00, 0x00, 0x00, 0x00, 0x00,
                         0x00, 0x0E, 0x00, 0x09, 0x01, 0x00, 0x64, 0x00, 0xC8,
                         0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0xD2};
    DecodedPacket packet;
    std::string reason;
    ASSERT_TRUE(DecodePacket(mouse.data(), mouse.size(), &packet, &reason)) << reason;
    EXPECT_EQ(packet.kind, Kind::kMouse);
    EXPECT_EQ(Describe(packet),
              "mouse_down button=1 at (100,200) coords=(100,200,0,0) ts=1234ms "
              "[len=26 class=0 tag=0x00 flags=0x00]");
}

// A valid packet of each shape, then one mutation per reason.
TEST(RemotePacketDecoder, RejectsMalformedPacketsWithAReason) {
    const Bytes mouse = {0x00, 0x00, 0x00, 0x1A, 0x00, 0x00, 0x00, 0x00, 0x00,
                         0x00, 0x0E, 0x00, 0x09, 0x01, 0x00, 0x64, 0x00, 0xC8,
                         0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0xD2};
    const Bytes zoom = {0x00, 0x00, 0x00, 0x18, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x00,
                        0x07, 0x00, 0x0A, 0xFF, 0xFD, 0x34, 0x12, 0x00, 0x00, 0x04, 0xD2, 0x00};
    const Bytes touch = {0x00, 0x00, 0x00, 0x1C, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                         0x02, 0x00, 0x0B, 0x01, 0x07, 0x01, 0x2C, 0xFF, 0xFE, 0x00,
                         0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0xD2, 0x00};
    for (const Bytes* valid : {&mouse, &zoom, &touch}) {
        DecodedPacket packet;
        std::string reason;
        EXPECT_TRUE(DecodePacket(valid->data(), valid->size(), &packet, &reason)) << reason;
    }

    struct Case {
        const char* what;
        Bytes bytes;
        const char* reason;
    };
    auto with = [](Bytes bytes, std::function<void(Bytes&)> change) {
        change(bytes);
        return bytes;
    };
    const Case cases[] = {
        {"empty", {}, "truncated: 0 bytes, the header alone takes 10"},
        {"wrong length field", with(mouse, [](Bytes& b) { b[3] = 0x1C; }),
         "length field says 28 but the packet has 26 bytes"},
        {"odd length", with(mouse, [](Bytes& b) { b.push_back(0); b[3] = 27; }),
         "odd packet length 27"},
        {"flag bit 0", with(mouse, [](Bytes& b) { b[0] = 0x01; }),
         "unknown flag bits 0x01 in header byte 0"},
        {"reserved header byte", with(mouse, [](Bytes& b) { b[7] = 0x10; }),
         "reserved header byte 7 is 0x10, not 0"},
        {"class 1", with(mouse, [](Bytes& b) { b[1] = 1; }), "unknown class 1"},
        {"class 5", with(mouse, [](Bytes& b) { b[1] = 5; }), "unknown class 5"},
        {"unknown code", with(mouse, [](Bytes& b) { b[10] = 0x11; }),
         "unknown body code 17 in class 0"},
        {"code of another class", with(mouse, [](Bytes& b) { b[1] = 3; b[10] = 6; }),
         "unknown body code 6 in class 3"},
        {"zoom length field", with(zoom, [](Bytes& b) { b[12] = 6; }),
         "body length field 6 inconsistent with zoom (expected 7)"},
        {"body shorter than the kind",
         with(mouse, [](Bytes& b) { b[10] = 0x06; b[12] = 0x09; }),
         "body length field 9 inconsistent with vertical_scroll (expected 3)"},
        {"truncated touch", with(touch, [](Bytes& b) { b[13] = 2; b[12] = 19; }),
         "truncated left_move body: packet needs 36 bytes, has 28"},
        {"trailing bytes", with(mouse, [](Bytes& b) { b.resize(28); b[3] = 28; }),
         "2 bytes beyond a mouse_down packet of 26"},
        {"padding byte", with(zoom, [](Bytes& b) { b[23] = 0xEE; }),
         "padding byte is 0xEE, not 0"},
        {"touch reserved tail", with(touch, [](Bytes& b) { b[20] = 0x01; }),
         "reserved touch byte at body offset 10 is 0x01"},
        {"key reserved byte",
         Bytes{0x00, 0x00, 0x00, 0x1A, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x03, 0x00, 0x09,
               0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},
         "reserved key byte is 0x01, not 0"},
        {"wheel bit 1",
         Bytes{0x00, 0x00, 0x00, 0x18, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x0C, 0x00,
               0x07, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},
         "unknown wheel button bits 0x02"},
        {"text length 0",
         Bytes{0x00, 0x02, 0x00, 0x14, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
               0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},
         "input_content length 0 outside 1..472"},
    };
    for (const Case& c : cases) {
        DecodedPacket packet;
        std::string reason;
        EXPECT_FALSE(DecodePacket(c.bytes.data(), c.bytes.size(), &packet, &reason)) << c.what;
        EXPECT_EQ(reason, c.reason) << c.what;
    }
}

}  // namespace
