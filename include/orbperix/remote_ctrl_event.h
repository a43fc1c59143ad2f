// The remote-control event record and its event-type vocabulary.
//
// A host fills one RemoteCtrlEvent per user action (touch, key, zoom, scroll, mouse, text input,
// wheel, virtual key, free-form message) and hands it to the library, which encodes it into a
// packet for the peer device. The record crosses the library boundary in binary form: field
// order, widths and offsets below are part of the binary interface and are checked at compile
// time. The library only reads the record, never writes it.
//
// The name constants and the two lists are immutable after static initialisation; reading them
// is safe from any thread. Every source unit that includes this header gets its own copies
// (internal linkage), constructed before any host call and destroyed at unload.
#ifndef ORBPERIX_REMOTE_CTRL_EVENT_H_
#define ORBPERIX_REMOTE_CTRL_EVENT_H_

#include <cstddef>
#include <cstdint>
#include <string>

// Pointer records of a touch: entry i of the three arrays describes pointer i.
struct RemoteTouchEvent {
    uint32_t action;        // 0 pointer down, 1 pointer up, 2 move
    uint8_t pointerCount;   // valid entries; the encoder bounds it by the buffer, not by 10
    uint8_t pointerIds[10];
    double x[10];
    double y[10];
};

struct RemoteKeyEvent {
    uint32_t action;        // 0 key down, 1 key up
    uint16_t keyReserved;   // never sent
    uint16_t keyValue1;
    uint16_t keyValue2;
    uint32_t keyValue3;
};

struct RemoteZoomEvent {
    double x;
    double y;
    uint16_t zoomValue;     // the one field sent low byte first
};

struct RemoteScrollEvent {
    uint32_t action;        // 0 vertical, 1 horizontal
    uint16_t scrollValue;
};

struct RemoteMouseEvent {
    uint32_t action;        // 0 button down, 1 button up, 2 move
    uint8_t button;
    double coords[4];
};

struct RemoteWheelEvent {
    uint32_t action;        // 0 vertical wheel, 1 horizontal wheel
    uint8_t buttons;        // bits 0, 1 and 2 are sent
    uint16_t wheelValue;
    double x;
    double y;
};

struct RemoteInputContent {
    uint16_t contentLength; // bytes used, 1 to 472
    uint8_t content[472];
};

struct RemoteInputFocus {
    uint8_t focusFlag;
    double focusValues[4];
};

struct RemoteInputEvent {
    uint32_t action;        // 0 content, 1 focus
    union {
        RemoteInputContent content;
        RemoteInputFocus focus;
    };
};

struct RemoteVirtualKeyEvent {
    uint32_t action;        // 0 back, 1 home, 2 recent apps, 3 quick settings
    double x;
    double y;
};

struct RemoteMessageEvent {
    uint32_t action;        // 0 extend, 1 reserved
    uint16_t messageLength; // messageWord plus used bytes of messageData, 3 to 472
    uint16_t messageWord;
    uint8_t messageData[472];
};

union RemoteCtrlPayload {
    RemoteTouchEvent touch;
    RemoteKeyEvent key;
    RemoteZoomEvent zoom;
    RemoteScrollEvent scroll;
    RemoteMouseEvent mouse;
    RemoteWheelEvent wheel;
    RemoteInputEvent input;
    RemoteVirtualKeyEvent virtualKey;
    RemoteMessageEvent message;
};

struct RemoteCtrlEvent {
    uint32_t headerFlags;   // only bits 0x08, 0x20 and 0x40 of the low byte are read
    uint32_t headerTag;     // its low byte goes into the packet header unchanged
    uint32_t reserved;
    uint32_t type;          // 0 touch, 1 key, 2 zoom, 3 scroll, 4 rotate, 5 reserved kind,
                            // 6 mouse, 7 text input, 8 wheel, 9 virtual key, 10 message
    RemoteCtrlPayload payload;
};

// The binary layout shared with hosts (natural alignment, x64).
static_assert(offsetof(RemoteCtrlEvent, type) == 12, "type offset");
static_assert(offsetof(RemoteCtrlEvent, payload) == 16, "payload sits at offset 16");
static_assert(alignof(RemoteCtrlPayload) == 8, "payload is 8-byte aligned");
static_assert(offsetof(RemoteTouchEvent, pointerCount) == 4, "touch pointerCount");
static_assert(offsetof(RemoteTouchEvent, pointerIds) == 5, "touch pointerIds");
static_assert(offsetof(RemoteTouchEvent, x) == 16, "touch x");
static_assert(offsetof(RemoteTouchEvent, y) == 96, "touch y");
static_assert(sizeof(RemoteTouchEvent) == 176, "touch size");
static_assert(offsetof(RemoteKeyEvent, keyValue1) == 6, "key keyValue1");
static_assert(offsetof(RemoteKeyEvent, keyValue2) == 8, "key keyValue2");
static_assert(offsetof(RemoteKeyEvent, keyValue3) == 12, "key keyValue3");
static_assert(offsetof(RemoteZoomEvent, y) == 8, "zoom y");
static_assert(offsetof(RemoteZoomEvent, zoomValue) == 16, "zoom zoomValue");
static_assert(offsetof(RemoteScrollEvent, scrollValue) == 4, "scroll scrollValue");
static_assert(offsetof(RemoteMouseEvent, button) == 4, "mouse button");
static_assert(offsetof(RemoteMouseEvent, coords) == 8, "mouse coords");
static_assert(offsetof(RemoteWheelEvent, buttons) == 4, "wheel buttons");
static_assert(offsetof(RemoteWheelEvent, wheelValue) == 6, "wheel wheelValue");
static_assert(offsetof(RemoteWheelEvent, x) == 8, "wheel x");
static_assert(offsetof(RemoteWheelEvent, y) == 16, "wheel y");
static_assert(offsetof(RemoteInputEvent, content) == 8, "input union is 8-byte aligned");
static_assert(offsetof(RemoteInputEvent, focus) == 8, "input focus shares the union");
static_assert(offsetof(RemoteInputContent, content) == 2, "input content bytes");
static_assert(offsetof(RemoteInputFocus, focusValues) == 8, "input focusValues");
static_assert(offsetof(RemoteVirtualKeyEvent, x) == 8, "virtual key x");
static_assert(offsetof(RemoteVirtualKeyEvent, y) == 16, "virtual key y");
static_assert(offsetof(RemoteMessageEvent, messageLength) == 4, "message length");
static_assert(offsetof(RemoteMessageEvent, messageWord) == 6, "message word");
static_assert(offsetof(RemoteMessageEvent, messageData) == 8, "message data");
static_assert(sizeof(RemoteCtrlPayload) == 488, "payload size");
static_assert(sizeof(RemoteCtrlEvent) == 504, "event size");

// Event-type names, one per kind and action. Nothing in the library looks events up by name;
// these are the vocabulary shared with hosts and tools. Namespace-scope const objects have
// internal linkage, so each including unit holds its own copies.

const std::string LEFT_POINT_DOWN = "left_point_down";
const std::string LEFT_POINT_UP = "left_point_up";
const std::string LEFT_MOVE = "left_move";
const std::string LEFT_KEY_DOWN = "left_key_down";
const std::string LEFT_KEY_UP = "left_key_up";
const std::string ZOOM = "zoom";
const std::string VERTICAL_SCROLL = "vertical_scroll";
const std::string HORIZONTAL_SCROLL = "horizontal_scroll";
const std::string ROTATE = "rotate";
const std::string MOUSE_DOWN = "mouse_down";
const std::string MOUSE_UP = "mouse_up";
const std::string MOUSE_MOVE = "mouse_move";
const std::string VERTICAL_WHEEL = "vertical_wheel";
const std::string HORIZONTAL_WHEEL = "horizontal_wheel";
const std::string INPUT_CONTENT = "input_content";
const std::string INPUT_FOCUS = "input_focus";
const std::string VIRTUALKEY_BACK = "virtualkey_back";
const std::string VIRTUALKEY_HOME = "virtualkey_home";
const std::string VIRTUALKEY_RECENT_APP = "virtualkey_recent_app";
const std::string VIRTUALKEY_QUICK_SETTING = "virtualkey_quick_setting";
const std::string MESSAGE_EXTEND = "message_extend";
const std::string MESSAGE_RESERVED = "message_reserved";

// The kinds of header class 0, in wire-table order (copies, not references).
const std::string BASIC_EVENT_NAMES[14] = {
    LEFT_POINT_DOWN, LEFT_POINT_UP,   LEFT_MOVE,       LEFT_KEY_DOWN,     LEFT_KEY_UP,
    ZOOM,            VERTICAL_SCROLL, HORIZONTAL_SCROLL, ROTATE,          MOUSE_DOWN,
    MOUSE_UP,        MOUSE_MOVE,      VERTICAL_WHEEL,  HORIZONTAL_WHEEL,
};

// The kinds of header classes 2, 3 and 4, in wire-table order.
const std::string EXTENDED_EVENT_NAMES[8] = {
    INPUT_CONTENT,         INPUT_FOCUS,              VIRTUALKEY_BACK, VIRTUALKEY_HOME,
    VIRTUALKEY_RECENT_APP, VIRTUALKEY_QUICK_SETTING, MESSAGE_EXTEND,  MESSAGE_RESERVED,
};

#endif  // ORBPERIX_REMOTE_CTRL_EVENT_H_
