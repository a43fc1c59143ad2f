#include "remote/remote_controller.h"

#include "platform/platform.h"

#include <cstddef>
#include <cstring>

#include "log/log.h"
#include "wire/coding.h"
#include "wire/event_kind.h"
#include "remote/framing.h"
#include "util/result.h"

namespace RemoteUtil {

namespace {

using OrbPerix::log::Trace;
using OrbPerix::coding::PutCoordinate;
using OrbPerix::coding::PutFixed16BE;
using OrbPerix::coding::PutFixed16LE;
using OrbPerix::coding::PutFixed32BE;

constexpr const char* kPacketScope = "RemoteUtil::RemoteController::ConstructRemoteCtrlPacket";
constexpr const char* kBodyScope = "RemoteUtil::RemoteController::ConstructInputBody";
constexpr const char* kTouchScope = "RemoteUtil::RemoteController::ConstructTouchEvent";
constexpr const char* kKeyScope = "RemoteUtil::RemoteController::ConstructKeyEvent";
constexpr const char* kZoomScope = "RemoteUtil::RemoteController::ConstructZoomEvent";
constexpr const char* kScrollScope = "RemoteUtil::RemoteController::ConstructScrollEvent";
constexpr const char* kMouseScope = "RemoteUtil::RemoteController::ConstructMouseEvent";
constexpr const char* kInputScope = "RemoteUtil::RemoteController::ConstructInputEvent";
constexpr const char* kContentScope = "RemoteUtil::RemoteController::ConstructInputContentEvent";
constexpr const char* kFocusScope = "RemoteUtil::RemoteController::ConstructInputFocusEvent";
constexpr const char* kWheelScope = "RemoteUtil::RemoteController::ConstructWheelEvent";
constexpr const char* kVirtualKeyScope = "RemoteUtil::RemoteController::ConstructVirtualKeyEvent";
constexpr const char* kMessageScope = "RemoteUtil::RemoteController::ConstructMessageEvent";

// Destination sizes of the two bounded copies. They are fixed by the wire format, not by the
// caller's capacity; the length checks before the copies keep both copies from failing.
constexpr size_t kContentCopyLimit = 472;
constexpr size_t kMessageCopyLimit = 470;

using namespace OrbPerix::event_kind;

// The wire code of `action` from a kind's table of codes by action; false for an action that
// the kind does not have.
template <size_t N>
bool CodeForAction(uint32_t action, const uint8_t (&codes)[N], uint8_t* code) {
    if (action >= N) {
        return false;
    }
    *code = codes[action];
    return true;
}

// The opening every encoder shares: its arguments present with room enough, then the wire code
// of its action. Each refusal is one line under the encoder's scope, "<encoder>, param not
// valid" or "<encoder>, unknown type" (the encoder's name is the end of its scope).
constexpr size_t kEncoderScopePrefixLength = sizeof("RemoteUtil::RemoteController::") - 1;

bool Refuse(const char* scope, const char* what) {
    Trace(LOG_MESSAGE_ERROR, scope, scope + kEncoderScopePrefixLength, what);
    return false;
}

bool ArgumentsFit(const char* scope, const RemoteCtrlEvent* event, const uint8_t* body,
                  bool roomEnough) {
    return (event != nullptr && body != nullptr && roomEnough) ||
           Refuse(scope, ", param not valid");
}

template <size_t N>
bool ActionCode(const char* scope, uint32_t action, const uint8_t (&codes)[N], uint8_t* code) {
    return CodeForAction(action, codes, code) || Refuse(scope, ", unknown type");
}

// A touch declares up to 255 pointers while its arrays hold 10: pointer i is read from the
// payload's bytes at the offset it would have if the arrays were longer, which is what hosts
// of the wire format rely on. The exported sender passes at most 255 - 10 body bytes, and a
// touch needs 9n + 4 < body capacity, so n <= 26 there: every such read lies inside the payload
// union (checked below) and is an ordinary byte copy. Only an internal caller with a larger
// capacity can ask for more; bytes past the payload then read as zero instead of reading
// outside the host's record.
constexpr size_t kMaxSenderBodyCapacity = 255 - RemoteController::kHeaderSize;
constexpr size_t kMaxSenderPointers = (kMaxSenderBodyCapacity - 5) / 9;
static_assert(9 * kMaxSenderPointers + 4 < kMaxSenderBodyCapacity &&
                  9 * (kMaxSenderPointers + 1) + 4 >= kMaxSenderBodyCapacity,
              "kMaxSenderPointers is the largest count the capacity check lets through");
static_assert(offsetof(RemoteTouchEvent, pointerIds) + kMaxSenderPointers <=
                      sizeof(RemoteCtrlPayload) &&
                  offsetof(RemoteTouchEvent, x) + 8 * kMaxSenderPointers <=
                      sizeof(RemoteCtrlPayload) &&
                  offsetof(RemoteTouchEvent, y) + 8 * kMaxSenderPointers <=
                      sizeof(RemoteCtrlPayload),
              "pointer reads through the sender stay inside the payload union");

constexpr size_t kTouchArrayLength = sizeof(RemoteTouchEvent::pointerIds);

template <typename T>
T ReadPayload(const RemoteCtrlPayload& payload, size_t offset) {
    T value{};
    if (offset <= sizeof(RemoteCtrlPayload) - sizeof(T)) {
        std::memcpy(&value, reinterpret_cast<const unsigned char*>(&payload) + offset,
                    sizeof(T));
    }
    return value;
}

}  // namespace

int RemoteController::ConstructRemoteCtrlPacket(const RemoteCtrlEvent* event, uint8_t* buffer,
                                                uint16_t capacity, LARGE_INTEGER start,
                                                LARGE_INTEGER frequency) const {
    if (buffer == nullptr) {
        Trace(LOG_MESSAGE_ERROR, kPacketScope, "ConstructRemoteCtrlPacket param invalid");
        return OrbPerix::kEncodeFailed;
    }
    std::memset(buffer, 0, capacity);
    if (event == nullptr) {
        Trace(LOG_MESSAGE_ERROR, kPacketScope, "ConstructRemoteCtrlPacket, event invalid");
        return OrbPerix::kEncodeFailed;
    }
    // A capacity that cannot hold the header leaves no body room at all. Saturating (rather
    // than letting capacity - 10 wrap to ~64 KiB) makes every kind fail its capacity check, so
    // nothing is written past capacity + 4 for any capacity.
    const uint16_t bodyCapacity =
        capacity > kHeaderSize ? static_cast<uint16_t>(capacity - kHeaderSize) : uint16_t{0};
    const int bodyLength =
        ConstructInputBody(event, buffer + kHeaderSize, bodyCapacity, start, frequency);
    if (bodyLength <= 0) {
        Trace(LOG_MESSAGE_ERROR, kPacketScope, "ConstructRemoteCtrlPacket, bodylength invalid");
        return OrbPerix::kEncodeFailed;
    }

    const uint32_t flags = event->headerFlags;
    if ((flags & 0x08u) != 0) buffer[0] |= 0x08;
    if ((flags & 0x20u) != 0) buffer[0] |= 0x04;
    if ((flags & 0x40u) != 0) buffer[0] |= 0x02;

    switch (event->type) {
        case kTouch:
        case kKey:
        case kZoom:
        case kScroll:
        case kRotate:
        case kMouse:
        case kWheel:
            break;
        case kReservedKind:
            buffer[1] |= 1;
            break;
        case kTextInput:
            buffer[1] |= 2;
            break;
        case kVirtualKey:
            buffer[1] |= 3;
            break;
        case kMessage:
            buffer[1] |= 4;
            break;
        default:
            // ConstructInputBody already refused every other type.
            Trace(LOG_MESSAGE_ERROR, kPacketScope, "ConstructRemoteCtrlPacket, unknown type ",
                  event->type);
            return OrbPerix::kEncodeFailed;
    }

    buffer[4] |= static_cast<uint8_t>(event->headerTag);
    const int packetLength = bodyLength + kHeaderSize;
    PutFixed16BE(buffer + 2, static_cast<uint16_t>(packetLength));
    return packetLength;
}

int RemoteController::ConstructInputBody(const RemoteCtrlEvent* event, uint8_t* body,
                                         uint16_t bodyCapacity, LARGE_INTEGER start,
                                         LARGE_INTEGER frequency) const {
    if (event == nullptr || body == nullptr) {
        Trace(LOG_MESSAGE_ERROR, kBodyScope, "event or buffer is null");
        return OrbPerix::kEncodeFailed;
    }
    if (event->type > kMessage) {
        Trace(LOG_MESSAGE_ERROR, kBodyScope, "ConstructInputBody, unsupported packet type ",
              event->type);
        return OrbPerix::kEncodeFailed;
    }

    int length = -1;
    switch (event->type) {
        case kTouch:
            length = ConstructTouchEvent(event, body, bodyCapacity);
            break;
        case kKey:
            length = ConstructKeyEvent(event, body, bodyCapacity);
            break;
        case kZoom:
            length = ConstructZoomEvent(event, body, bodyCapacity);
            break;
        case kScroll:
            length = ConstructScrollEvent(event, body, bodyCapacity);
            break;
        case kRotate:
            // Rotation has no body on the wire: a failure without a message of its own.
            length = -1;
            break;
        case kReservedKind:
            // The reserved kind has no body either; 0 fails the same way further down.
            length = 0;
            break;
        case kMouse:
            length = ConstructMouseEvent(event, body, bodyCapacity);
            break;
        case kTextInput:
            length = ConstructInputEvent(event, body, bodyCapacity);
            break;
        case kWheel:
            length = ConstructWheelEvent(event, body, bodyCapacity);
            break;
        case kVirtualKey:
            length = ConstructVirtualKeyEvent(event, body, bodyCapacity);
            break;
        case kMessage:
            length = ConstructMessageEvent(event, body, bodyCapacity);
            break;
        default:
            break;
    }

    // A failed body still passes through both steps: each logs it, which is what makes the
    // failure recognisable in the log.
    length = AddTimeStamp(body, bodyCapacity, length, start, frequency);
    return DoPaddingOperation(body, bodyCapacity, length);
}

int RemoteController::ConstructTouchEvent(const RemoteCtrlEvent* event, uint8_t* body,
                                          uint16_t bodyCapacity) const {
    if (event == nullptr || body == nullptr) {
        Trace(LOG_MESSAGE_ERROR, kTouchScope, "ConstructTouchEvent, param not valid");
        return OrbPerix::kEncodeFailed;
    }
    const RemoteTouchEvent& touch = event->payload.touch;
    const int count = touch.pointerCount;
    // Each pointer reserves 9 bytes although only 5 are filled; the rest stay zero.
    const int length = 9 * count + 4;
    if (bodyCapacity <= length) {
        Trace(LOG_MESSAGE_ERROR, kTouchScope, "ConstructTouchEvent, buffer size is not enough");
        return OrbPerix::kEncodeFailed;
    }
    static constexpr uint8_t kCodes[] = {14, 15, 2};
    uint8_t code = 0;
    if (!ActionCode(kTouchScope, touch.action, kCodes, &code)) {
        return OrbPerix::kEncodeFailed;
    }
    body[0] = code;
    // Counts the padding byte that an odd count will cause (9n + 8 is odd when n is).
    PutFixed16BE(body + 1, static_cast<uint16_t>(9 * count + 1 + count % 2));
    body[3] = touch.pointerCount;
    const size_t declared = static_cast<size_t>(count);
    const size_t inArrays = declared < kTouchArrayLength ? declared : kTouchArrayLength;
    uint8_t* pointer = body + 4;
    for (size_t i = 0; i < inArrays; ++i, pointer += 5) {
        pointer[0] = touch.pointerIds[i];
        PutCoordinate(pointer + 1, touch.x[i]);
        PutCoordinate(pointer + 3, touch.y[i]);
    }
    const RemoteCtrlPayload& payload = event->payload;
    for (size_t i = inArrays; i < declared; ++i, pointer += 5) {
        pointer[0] = ReadPayload<uint8_t>(payload, offsetof(RemoteTouchEvent, pointerIds) + i);
        PutCoordinate(pointer + 1,
                      ReadPayload<double>(payload, offsetof(RemoteTouchEvent, x) + 8 * i));
        PutCoordinate(pointer + 3,
                      ReadPayload<double>(payload, offsetof(RemoteTouchEvent, y) + 8 * i));
    }
    return length;
}

int RemoteController::ConstructKeyEvent(const RemoteCtrlEvent* event, uint8_t* body,
                                        uint16_t bodyCapacity) const {
    if (!ArgumentsFit(kKeyScope, event, body, bodyCapacity > 12)) {
        return OrbPerix::kEncodeFailed;
    }
    const RemoteKeyEvent& key = event->payload.key;
    static constexpr uint8_t kCodes[] = {3, 4};
    uint8_t code = 0;
    if (!ActionCode(kKeyScope, key.action, kCodes, &code)) {
        return OrbPerix::kEncodeFailed;
    }
    body[0] = code;
    PutFixed16BE(body + 1, 9);
    body[3] = 0;  // keyReserved is never sent
    PutFixed16BE(body + 4, key.keyValue1);
    PutFixed16BE(body + 6, key.keyValue2);
    PutFixed32BE(body + 8, key.keyValue3);
    return 12;
}

int RemoteController::ConstructZoomEvent(const RemoteCtrlEvent* event, uint8_t* body,
                                         uint16_t bodyCapacity) const {
    if (!ArgumentsFit(kZoomScope, event, body, bodyCapacity > 9)) {
        return OrbPerix::kEncodeFailed;
    }
    const RemoteZoomEvent& zoom = event->payload.zoom;
    body[0] = 5;
    PutFixed16BE(body + 1, 7);  // 6 field bytes and the padding byte that always follows
    PutCoordinate(body + 3, zoom.x);
    PutCoordinate(body + 5, zoom.y);
    PutFixed16LE(body + 7, zoom.zoomValue);
    return 9;
}

int RemoteController::ConstructScrollEvent(const RemoteCtrlEvent* event, uint8_t* body,
                                           uint16_t bodyCapacity) const {
    if (!ArgumentsFit(kScrollScope, event, body, bodyCapacity > 5)) {
        return OrbPerix::kEncodeFailed;
    }
    const RemoteScrollEvent& scroll = event->payload.scroll;
    static constexpr uint8_t kCodes[] = {6, 7};
    uint8_t code = 0;
    if (!ActionCode(kScrollScope, scroll.action, kCodes, &code)) {
        return OrbPerix::kEncodeFailed;
    }
    body[0] = code;
    PutFixed16BE(body + 1, 3);  // 2 field bytes and the padding byte that always follows
    PutFixed16BE(body + 3, scroll.scrollValue);
    return 5;
}

int RemoteController::ConstructMouseEvent(const RemoteCtrlEvent* event, uint8_t* body,
                                          uint16_t bodyCapacity) const {
    if (!ArgumentsFit(kMouseScope, event, body, bodyCapacity > 12)) {
        return OrbPerix::kEncodeFailed;
    }
    const RemoteMouseEvent& mouse = event->payload.mouse;
    static constexpr uint8_t kCodes[] = {14, 15, 16};
    uint8_t code = 0;
    if (!ActionCode(kMouseScope, mouse.action, kCodes, &code)) {
        return OrbPerix::kEncodeFailed;
    }
    body[0] = code;
    PutFixed16BE(body + 1, 9);
    body[3] = mouse.button;
    for (size_t i = 0; i < 4; ++i) {
        PutCoordinate(body + 4 + 2 * i, mouse.coords[i]);
    }
    return 12;
}

int RemoteController::ConstructInputEvent(const RemoteCtrlEvent* event, uint8_t* body,
                                          uint16_t bodyCapacity) const {
    if (event == nullptr || body == nullptr) {
        Trace(LOG_MESSAGE_ERROR, kInputScope, "ConstructInputEvent, param not valid");
        return OrbPerix::kEncodeFailed;
    }
    switch (event->payload.input.action) {
        case 0:
            return ConstructInputContentEvent(event->payload.input, body, bodyCapacity);
        case 1:
            return ConstructInputFocusEvent(event, body, bodyCapacity);
        default:
            Trace(LOG_MESSAGE_ERROR, kInputScope, "ConstructInputEvent, unknown type");
            return OrbPerix::kEncodeFailed;
    }
}

int RemoteController::ConstructInputContentEvent(const RemoteInputEvent& input, uint8_t* body,
                                                 uint16_t bodyCapacity) const {
    const uint16_t length = input.content.contentLength;
    // One unsigned test for both ends: 0 wraps to 65535.
    if (static_cast<uint16_t>(length - 1u) > kContentCopyLimit - 1) {
        Trace(LOG_MESSAGE_ERROR, kContentScope,
              "ConstructInputContentEvent , msg length too large");
        return OrbPerix::kEncodeFailed;
    }
    if (body == nullptr || bodyCapacity <= length + 5) {
        Trace(LOG_MESSAGE_ERROR, kContentScope, "ConstructInputContentEvent, param not valid");
        return OrbPerix::kEncodeFailed;
    }
    body[0] = 0;
    PutFixed16BE(body + 1, static_cast<uint16_t>(length + 2 + (length + 5) % 2));
    PutFixed16BE(body + 3, length);
    const int copied =
        OrbPerix::platform::BoundedCopy(body + 5, kContentCopyLimit, input.content.content, length);
    if (copied != OrbPerix::platform::kCopyOk) {
        Trace(LOG_MESSAGE_ERROR, kContentScope,
              "ConstructInputContentEvent, memcpy_s fail return code = ", copied);
        return OrbPerix::kEncodeFailed;
    }
    return length + 5;
}

int RemoteController::ConstructInputFocusEvent(const RemoteCtrlEvent* event, uint8_t* body,
                                               uint16_t bodyCapacity) const {
    if (!ArgumentsFit(kFocusScope, event, body, bodyCapacity > 12)) {
        return OrbPerix::kEncodeFailed;
    }
    const RemoteInputFocus& focus = event->payload.input.focus;
    body[0] = 1;
    PutFixed16BE(body + 1, 9);
    body[3] = focus.focusFlag;
    for (size_t i = 0; i < 4; ++i) {
        PutCoordinate(body + 4 + 2 * i, focus.focusValues[i]);
    }
    return 12;
}

int RemoteController::ConstructWheelEvent(const RemoteCtrlEvent* event, uint8_t* body,
                                          uint16_t bodyCapacity) const {
    if (!ArgumentsFit(kWheelScope, event, body, bodyCapacity > 10)) {
        return OrbPerix::kEncodeFailed;
    }
    const RemoteWheelEvent& wheel = event->payload.wheel;
    static constexpr uint8_t kCodes[] = {12, 13};
    uint8_t code = 0;
    if (!ActionCode(kWheelScope, wheel.action, kCodes, &code)) {
        return OrbPerix::kEncodeFailed;
    }
    body[0] = code;
    PutFixed16BE(body + 1, 7);
    // Button bit 0 stays; bits 1 and 2 move up to wire bits 2 and 3; wire bit 1 stays clear.
    body[3] = static_cast<uint8_t>(((wheel.buttons & 0x06u) << 1) | (wheel.buttons & 0x01u));
    PutFixed16BE(body + 4, wheel.wheelValue);
    PutCoordinate(body + 6, wheel.x);
    PutCoordinate(body + 8, wheel.y);
    return 10;
}

int RemoteController::ConstructVirtualKeyEvent(const RemoteCtrlEvent* event, uint8_t* body,
                                               uint16_t bodyCapacity) const {
    if (!ArgumentsFit(kVirtualKeyScope, event, body, bodyCapacity > 7)) {
        return OrbPerix::kEncodeFailed;
    }
    const RemoteVirtualKeyEvent& virtualKey = event->payload.virtualKey;
    if (virtualKey.action > 3) {
        Trace(LOG_MESSAGE_ERROR, kVirtualKeyScope, "ConstructVirtualKeyEvent, unknown type");
        return OrbPerix::kEncodeFailed;
    }
    body[0] = static_cast<uint8_t>(virtualKey.action + 2);  // back 2, home 3, recent 4, quick 5
    PutFixed16BE(body + 1, 5);  // 4 field bytes and the padding byte that always follows
    PutCoordinate(body + 3, virtualKey.x);
    PutCoordinate(body + 5, virtualKey.y);
    return 7;
}

int RemoteController::ConstructMessageEvent(const RemoteCtrlEvent* event, uint8_t* body,
                                            uint16_t bodyCapacity) const {
    if (event == nullptr || body == nullptr) {
        Trace(LOG_MESSAGE_ERROR, kMessageScope, "ConstructMessageEvent, param not valid");
        return OrbPerix::kEncodeFailed;
    }
    const RemoteMessageEvent& message = event->payload.message;
    const uint16_t length = message.messageLength;
    // One unsigned test for both ends: lengths below 3 wrap to above 65000.
    if (static_cast<uint16_t>(length - 3u) > kContentCopyLimit - 3) {
        // The message shares the text input's wire layout and so its error text.
        Trace(LOG_MESSAGE_ERROR, kMessageScope, "ConstructInputEvent , msg length too large");
        return OrbPerix::kEncodeFailed;
    }
    if (bodyCapacity <= length + 5) {
        Trace(LOG_MESSAGE_ERROR, kMessageScope, "ConstructMessageEvent, param not valid");
        return OrbPerix::kEncodeFailed;
    }
    static constexpr uint8_t kCodes[] = {6, 7};
    uint8_t code = 0;
    if (!ActionCode(kMessageScope, message.action, kCodes, &code)) {
        return OrbPerix::kEncodeFailed;
    }
    body[0] = code;
    PutFixed16BE(body + 1, static_cast<uint16_t>(length + 2 + (length + 5) % 2));
    PutFixed16BE(body + 3, length);
    PutFixed16BE(body + 5, message.messageWord);
    const int copied = OrbPerix::platform::BoundedCopy(body + 7, kMessageCopyLimit,
                                                       message.messageData, length - 2u);
    if (copied != OrbPerix::platform::kCopyOk) {
        Trace(LOG_MESSAGE_ERROR, kMessageScope,
              "ConstructMessageEvent, memcpy_s fail return code = ", copied);
        return OrbPerix::kEncodeFailed;
    }
    return length + 5;
}

}  // namespace RemoteUtil
