#include "packet_decoder.h"

#include <cstdio>

#include "orbperix/remote_ctrl_event.h"
#include "wire/coding.h"
#include "wire/event_kind.h"

namespace OrbPerix {
namespace packet {

namespace {

constexpr size_t kHeaderSize = 10;
constexpr size_t kBodyHeadSize = 3;
constexpr size_t kTimestampSize = 4;
constexpr size_t kMaxTextLength = 472;

using coding::GetFixed16BE;
using coding::GetFixed16LE;
using coding::GetFixed32BE;

std::string Hex(unsigned value, int width = 2) {
    char text[16];
    std::snprintf(text, sizeof(text), "0x%0*X", width, value);
    return text;
}

bool Fail(std::string* reason, const std::string& text) {
    if (reason != nullptr) {
        *reason = text;
    }
    return false;
}

struct KindInfo {
    Kind kind;
    uint32_t action;
    const std::string* name;
};

// The RemoteCtrlEvent type a decoded kind comes from.
uint32_t TypeOf(Kind kind) {
    switch (kind) {
        case Kind::kTouch: return event_kind::kTouch;
        case Kind::kKey: return event_kind::kKey;
        case Kind::kZoom: return event_kind::kZoom;
        case Kind::kScroll: return event_kind::kScroll;
        case Kind::kMouse: return event_kind::kMouse;
        case Kind::kInputContent:
        case Kind::kInputFocus: return event_kind::kTextInput;
        case Kind::kWheel: return event_kind::kWheel;
        case Kind::kVirtualKey: return event_kind::kVirtualKey;
        case Kind::kMessage: return event_kind::kMessage;
    }
    return event_kind::kTouch;
}

// Maps class and body code to the event kind. Codes 14 and 15 are shared by touch and mouse in
// class 0; a mouse body length is always 9, which no touch length (9n + 1 + n mod 2) equals.
bool IdentifyKind(uint8_t packetClass, uint8_t code, uint16_t bodyLength, KindInfo* info) {
    switch (packetClass) {
        case 0:
            switch (code) {
                case 14:
                case 15: {
                    const uint32_t action = code == 14u ? 0u : 1u;
                    if (bodyLength == 9) {
                        *info = {Kind::kMouse, action, action == 0 ? &MOUSE_DOWN : &MOUSE_UP};
                    } else {
                        *info = {Kind::kTouch, action,
                                 action == 0 ? &LEFT_POINT_DOWN : &LEFT_POINT_UP};
                    }
                    return true;
                }
                case 2: *info = {Kind::kTouch, 2, &LEFT_MOVE}; return true;
                case 16: *info = {Kind::kMouse, 2, &MOUSE_MOVE}; return true;
                case 3: *info = {Kind::kKey, 0, &LEFT_KEY_DOWN}; return true;
                case 4: *info = {Kind::kKey, 1, &LEFT_KEY_UP}; return true;
                case 5: *info = {Kind::kZoom, 0, &ZOOM}; return true;
                case 6: *info = {Kind::kScroll, 0, &VERTICAL_SCROLL}; return true;
                case 7: *info = {Kind::kScroll, 1, &HORIZONTAL_SCROLL}; return true;
                case 12: *info = {Kind::kWheel, 0, &VERTICAL_WHEEL}; return true;
                case 13: *info = {Kind::kWheel, 1, &HORIZONTAL_WHEEL}; return true;
                default: return false;
            }
        case 2:
            if (code == 0) { *info = {Kind::kInputContent, 0, &INPUT_CONTENT}; return true; }
            if (code == 1) { *info = {Kind::kInputFocus, 1, &INPUT_FOCUS}; return true; }
            return false;
        case 3:
            switch (code) {
                case 2: *info = {Kind::kVirtualKey, 0, &VIRTUALKEY_BACK}; return true;
                case 3: *info = {Kind::kVirtualKey, 1, &VIRTUALKEY_HOME}; return true;
                case 4: *info = {Kind::kVirtualKey, 2, &VIRTUALKEY_RECENT_APP}; return true;
                case 5: *info = {Kind::kVirtualKey, 3, &VIRTUALKEY_QUICK_SETTING}; return true;
                default: return false;
            }
        case 4:
            if (code == 6) { *info = {Kind::kMessage, 0, &MESSAGE_EXTEND}; return true; }
            if (code == 7) { *info = {Kind::kMessage, 1, &MESSAGE_RESERVED}; return true; }
            return false;
        default:
            return false;
    }
}

}  // namespace

bool DecodePacket(const uint8_t* data, size_t size, DecodedPacket* out, std::string* reason) {
    if (out == nullptr || (data == nullptr && size != 0)) {
        return Fail(reason, "no packet or no place for the result");
    }
    if (size < kHeaderSize) {
        return Fail(reason, "truncated: " + std::to_string(size) +
                                " bytes, the header alone takes 10");
    }
    const uint16_t length = GetFixed16BE(data + 2);
    if (length != size) {
        return Fail(reason, "length field says " + std::to_string(length) +
                                " but the packet has " + std::to_string(size) + " bytes");
    }
    if (size % 2 != 0) {
        return Fail(reason, "odd packet length " + std::to_string(size));
    }
    const uint8_t flags = data[0];
    if ((flags & ~0x0Eu) != 0) {
        return Fail(reason, "unknown flag bits " + Hex(flags & ~0x0Eu) + " in header byte 0");
    }
    for (size_t i = 5; i < kHeaderSize; ++i) {
        if (data[i] != 0) {
            return Fail(reason, "reserved header byte " + std::to_string(i) + " is " +
                                    Hex(data[i]) + ", not 0");
        }
    }
    const uint8_t packetClass = data[1];
    if (packetClass == 1 || packetClass > 4) {
        return Fail(reason, "unknown class " + std::to_string(packetClass));
    }
    if (size < kHeaderSize + kBodyHeadSize + kTimestampSize) {
        return Fail(reason, "truncated: " + std::to_string(size) +
                                " bytes leave no room for a body head and a timestamp");
    }

    const uint8_t* body = data + kHeaderSize;
    // Bytes between the header and the end, of which the timestamp and padding take 4 or 5.
    const size_t available = size - kHeaderSize - kTimestampSize;
    DecodedPacket packet;
    packet.flags = flags;
    packet.headerFlags = ((flags & 0x08u) != 0 ? 0x08u : 0u) | ((flags & 0x04u) != 0 ? 0x20u : 0u) |
                         ((flags & 0x02u) != 0 ? 0x40u : 0u);
    packet.packetClass = packetClass;
    packet.length = length;
    packet.tag = data[4];
    packet.code = body[0];
    packet.bodyLength = GetFixed16BE(body + 1);

    KindInfo info{};
    if (!IdentifyKind(packetClass, packet.code, packet.bodyLength, &info)) {
        return Fail(reason, "unknown body code " + std::to_string(packet.code) + " in class " +
                                std::to_string(packetClass));
    }
    packet.kind = info.kind;
    packet.type = TypeOf(info.kind);
    packet.action = info.action;
    packet.name = *info.name;

    // The body size the kind implies; touch, text and message carry their own count first.
    size_t bodySize = 0;
    switch (info.kind) {
        case Kind::kTouch:
            if (available < 4) {
                return Fail(reason, "truncated touch body: no pointer count");
            }
            bodySize = 9u * body[3] + 4u;
            break;
        case Kind::kInputContent:
        case Kind::kMessage: {
            if (available < 5) {
                return Fail(reason, "truncated " + packet.name + " body: no length");
            }
            const size_t textLength = GetFixed16BE(body + 3);
            const size_t minimum = info.kind == Kind::kMessage ? 3 : 1;
            if (textLength < minimum || textLength > kMaxTextLength) {
                return Fail(reason, packet.name + " length " + std::to_string(textLength) +
                                        " outside " + std::to_string(minimum) + ".." +
                                        std::to_string(kMaxTextLength));
            }
            bodySize = textLength + 5;
            break;
        }
        case Kind::kKey:
        case Kind::kMouse:
        case Kind::kInputFocus:
            bodySize = 12;
            break;
        case Kind::kZoom:
            bodySize = 9;
            break;
        case Kind::kScroll:
            bodySize = 5;
            break;
        case Kind::kWheel:
            bodySize = 10;
            break;
        case Kind::kVirtualKey:
            bodySize = 7;
            break;
    }
    // The field counts the bytes behind the body head plus the padding byte an odd body needs.
    const size_t padding = bodySize % 2;
    const size_t expectedField = bodySize - kBodyHeadSize + padding;
    if (packet.bodyLength != expectedField) {
        return Fail(reason, "body length field " + std::to_string(packet.bodyLength) +
                                " inconsistent with " + packet.name + " (expected " +
                                std::to_string(expectedField) + ")");
    }
    const size_t expectedSize = kHeaderSize + bodySize + kTimestampSize + padding;
    if (size < expectedSize) {
        return Fail(reason, "truncated " + packet.name + " body: packet needs " +
                                std::to_string(expectedSize) + " bytes, has " +
                                std::to_string(size));
    }
    if (size > expectedSize) {
        return Fail(reason, std::to_string(size - expectedSize) + " bytes beyond a " +
                                packet.name + " packet of " + std::to_string(expectedSize));
    }

    switch (info.kind) {
        case Kind::kTouch: {
            const size_t count = body[3];
            for (size_t i = 0; i < count; ++i) {
                const uint8_t* p = body + 4 + 5 * i;
                packet.pointers.push_back({p[0], GetFixed16BE(p + 1), GetFixed16BE(p + 3)});
            }
            // Each pointer reserves 9 bytes of which 5 are filled; the tail must be zero.
            for (size_t i = 4 + 5 * count; i < bodySize; ++i) {
                if (body[i] != 0) {
                    return Fail(reason, "reserved touch byte at body offset " +
                                            std::to_string(i) + " is " + Hex(body[i]));
                }
            }
            break;
        }
        case Kind::kKey:
            if (body[3] != 0) {
                return Fail(reason, "reserved key byte is " + Hex(body[3]) + ", not 0");
            }
            packet.keyValue1 = GetFixed16BE(body + 4);
            packet.keyValue2 = GetFixed16BE(body + 6);
            packet.keyValue3 = GetFixed32BE(body + 8);
            break;
        case Kind::kZoom:
            packet.x = GetFixed16BE(body + 3);
            packet.y = GetFixed16BE(body + 5);
            packet.zoomValue = GetFixed16LE(body + 7);
            break;
        case Kind::kScroll:
            packet.scrollValue = GetFixed16BE(body + 3);
            break;
        case Kind::kMouse:
        case Kind::kInputFocus:
            if (info.kind == Kind::kMouse) {
                packet.button = body[3];
            } else {
                packet.focusFlag = body[3];
            }
            for (size_t i = 0; i < 4; ++i) {
                packet.values[i] = GetFixed16BE(body + 4 + 2 * i);
            }
            break;
        case Kind::kInputContent:
            packet.data.assign(body + 5, body + bodySize);
            break;
        case Kind::kWheel: {
            const uint8_t wire = body[3];
            if ((wire & ~0x0Du) != 0) {
                return Fail(reason, "unknown wheel button bits " + Hex(wire & ~0x0Du));
            }
            packet.wireButtons = wire;
            packet.buttons = static_cast<uint8_t>(((wire & 0x0Cu) >> 1) | (wire & 0x01u));
            packet.wheelValue = GetFixed16BE(body + 4);
            packet.x = GetFixed16BE(body + 6);
            packet.y = GetFixed16BE(body + 8);
            break;
        }
        case Kind::kVirtualKey:
            packet.x = GetFixed16BE(body + 3);
            packet.y = GetFixed16BE(body + 5);
            break;
        case Kind::kMessage:
            packet.messageWord = GetFixed16BE(body + 5);
            packet.data.assign(body + 7, body + bodySize);
            break;
    }

    packet.timestampMs = GetFixed32BE(body + bodySize);
    packet.padded = padding != 0;
    if (packet.padded && data[size - 1] != 0) {
        return Fail(reason, "padding byte is " + Hex(data[size - 1]) + ", not 0");
    }
    *out = std::move(packet);
    return true;
}

namespace {

std::string Signed(uint16_t value) {
    return std::to_string(value >= 0x8000u ? static_cast<int>(value) - 0x10000 : value);
}

std::string Point(uint16_t x, uint16_t y) { return "(" + Signed(x) + "," + Signed(y) + ")"; }

std::string Quoted(const std::vector<uint8_t>& bytes) {
    std::string text = "\"";
    for (uint8_t byte : bytes) {
        if (byte == '"' || byte == '\\') {
            text += '\\';
            text += static_cast<char>(byte);
        } else if (byte >= 0x20 && byte < 0x7F) {
            text += static_cast<char>(byte);
        } else {
            char escaped[8];
            std::snprintf(escaped, sizeof(escaped), "\\x%02X", byte);
            text += escaped;
        }
    }
    return text + "\"";
}

}  // namespace

std::string Describe(const DecodedPacket& packet) {
    std::string text = packet.name;
    switch (packet.kind) {
        case Kind::kTouch:
            text += " pointers=" + std::to_string(packet.pointers.size());
            for (const TouchPointer& pointer : packet.pointers) {
                text += " id" + std::to_string(pointer.id) + Point(pointer.x, pointer.y);
            }
            break;
        case Kind::kKey:
            text += " key=(" + std::to_string(packet.keyValue1) + "," +
                    std::to_string(packet.keyValue2) + "," + std::to_string(packet.keyValue3) +
                    ")";
            break;
        case Kind::kZoom:
            text += " at " + Point(packet.x, packet.y) + " value=" +
                    std::to_string(packet.zoomValue);
            break;
        case Kind::kScroll:
            text += " value=" + std::to_string(packet.scrollValue);
            break;
        case Kind::kMouse:
        case Kind::kInputFocus:
            text += packet.kind == Kind::kMouse ? " button=" + std::to_string(packet.button)
                                                : " flag=" + std::to_string(packet.focusFlag);
            text += packet.kind == Kind::kMouse ? " at " : " values=";
            text += packet.kind == Kind::kMouse ? Point(packet.values[0], packet.values[1]) +
                                                      " coords=("
                                                : "(";
            for (size_t i = 0; i < 4; ++i) {
                text += (i == 0 ? "" : ",") + Signed(packet.values[i]);
            }
            text += ")";
            break;
        case Kind::kInputContent:
            text += " length=" + std::to_string(packet.data.size()) + " text=" +
                    Quoted(packet.data);
            break;
        case Kind::kWheel:
            text += " buttons=" + Hex(packet.buttons) + " value=" +
                    std::to_string(packet.wheelValue) + " at " + Point(packet.x, packet.y);
            break;
        case Kind::kVirtualKey:
            text += " at " + Point(packet.x, packet.y);
            break;
        case Kind::kMessage:
            text += " word=" + Hex(packet.messageWord, 4) + " length=" +
                    std::to_string(packet.data.size() + 2) + " data=" + Quoted(packet.data);
            break;
    }
    text += " ts=" + std::to_string(packet.timestampMs) + "ms [len=" +
            std::to_string(packet.length) + " class=" + std::to_string(packet.packetClass) +
            " tag=" + Hex(packet.tag) + " flags=" + Hex(packet.flags) +
            (packet.padded ? " padded" : "") + "]";
    return text;
}

}  // namespace packet
}  // namespace OrbPerix
