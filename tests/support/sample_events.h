// The catalogue of sample remote-control events for the C++ tests: a zeroed event of a kind
// and action, and one event of every kind with a body of its own. (The C test keeps its own
// list, mirrored in tests/c/cpp_reference.cpp, because it builds the events with the C names.)
#ifndef ORBPERIX_TESTS_SUPPORT_SAMPLE_EVENTS_H_
#define ORBPERIX_TESTS_SUPPORT_SAMPLE_EVENTS_H_

#include <cstdint>
#include <cstring>
#include <vector>

#include "orbperix/remote_ctrl_event.h"

namespace sample_events {

// All zero but the kind and the action word (which leads every payload kind).
inline RemoteCtrlEvent Event(uint32_t type, uint32_t action = 0) {
    RemoteCtrlEvent event;
    std::memset(&event, 0, sizeof(event));
    event.type = type;
    event.payload.mouse.action = action;
    return event;
}

// One valid event of each kind the encoder builds a body for, in kind order.
inline std::vector<RemoteCtrlEvent> EveryKind() {
    std::vector<RemoteCtrlEvent> events;
    RemoteCtrlEvent touch = Event(0, 0);
    touch.payload.touch.pointerCount = 1;
    touch.payload.touch.x[0] = 100;
    events.push_back(touch);
    RemoteCtrlEvent key = Event(1, 0);
    key.payload.key.keyValue1 = 29;
    events.push_back(key);
    RemoteCtrlEvent zoom = Event(2, 0);
    zoom.payload.zoom.zoomValue = 120;
    events.push_back(zoom);
    events.push_back(Event(3, 1));
    RemoteCtrlEvent mouse = Event(6, 0);
    mouse.payload.mouse.button = 1;
    events.push_back(mouse);
    RemoteCtrlEvent text = Event(7, 0);
    text.payload.input.content.contentLength = 5;
    std::memcpy(text.payload.input.content.content, "hello", 5);
    events.push_back(text);
    RemoteCtrlEvent wheel = Event(8, 0);
    wheel.payload.wheel.wheelValue = 3;
    events.push_back(wheel);
    events.push_back(Event(9, 0));
    RemoteCtrlEvent message = Event(10, 0);
    message.payload.message.messageLength = 5;
    std::memcpy(message.payload.message.messageData, "abc", 3);
    events.push_back(message);
    return events;
}

}  // namespace sample_events

#endif  // ORBPERIX_TESTS_SUPPORT_SAMPLE_EVENTS_H_
