// The packet decoder against the encoder (every kind and action) and against malformed
// packets, each rejected with its reason.
#include <gtest/gtest.h>

#include <functional>

#include "packet_decoder.h"
#include "remote_test_helpers.h"

namespace {

using OrbPerix::packet::DecodedPacket;
using OrbPerix::packet::DecodePacket;
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

// Every kind and action decodes to its published name, with the header's flags and tag. The
// fields of each kind are pinned by the encoder's golden packets, which are decoded there.
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
        for (const RemoteCtrlEvent& sample : sample_events::EveryKind()) {
            if (sample.type == e.type) event = sample;
        }
        event.payload.key.action = e.action;  // the action word leads every member
        event.headerFlags = 0x28;
        event.headerTag = 0x3C;
        const uint8_t capacity = e.type == 7 ? 233 : e.type == 10 ? 235 : 105;
        const DecodedPacket p = EncodeAndDecode(event, capacity);
        EXPECT_EQ(p.action, e.action);
        EXPECT_EQ(p.name, *e.name);
        EXPECT_EQ(p.headerFlags, 0x28u);
        EXPECT_EQ(p.tag, 0x3C);
    }
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
