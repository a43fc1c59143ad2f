// Compile-time proof that the C records of orbperix_c.h and the C++ records they mirror agree
// field by field, so that the wrapper may copy one into the other byte for byte.
#include <cstddef>
#include <type_traits>

#include "orbperix/orbperix_c.h"
#include "orbperix/records.h"
#include "orbperix/remote_ctrl_event.h"
#include "util/result.h"

#define ORBPERIX_SAME_FIELD(c_type, c_field, cpp_type, cpp_field)                    \
    static_assert(offsetof(c_type, c_field) == offsetof(cpp_type, cpp_field) &&       \
                      sizeof(c_type::c_field) == sizeof(cpp_type::cpp_field),         \
                  #c_type "." #c_field " differs from " #cpp_type "." #cpp_field)
#define ORBPERIX_SAME_RECORD(c_type, cpp_type)                                         \
    static_assert(sizeof(c_type) == sizeof(cpp_type) && alignof(c_type) == alignof(cpp_type), \
                  #c_type " differs from " #cpp_type);                                \
    static_assert(std::is_trivially_copyable<c_type>::value &&                        \
                      std::is_trivially_copyable<cpp_type>::value,                    \
                  #c_type " must be plain data")

ORBPERIX_SAME_RECORD(orbperix_device_info, PERIXInfo);
ORBPERIX_SAME_FIELD(orbperix_device_info, engine_word0, PERIXInfo, engineWord0);
ORBPERIX_SAME_FIELD(orbperix_device_info, local_device_id, PERIXInfo, localDeviceId);
ORBPERIX_SAME_FIELD(orbperix_device_info, peer_device_id, PERIXInfo, peerDeviceId);
ORBPERIX_SAME_FIELD(orbperix_device_info, local_device_id_len, PERIXInfo, localDeviceIdLen);
ORBPERIX_SAME_FIELD(orbperix_device_info, peer_device_id_len, PERIXInfo, peerDeviceIdLen);
ORBPERIX_SAME_FIELD(orbperix_device_info, engine_reserved, PERIXInfo, engineReserved);
ORBPERIX_SAME_FIELD(orbperix_device_info, server_port, PERIXInfo, serverPort);
ORBPERIX_SAME_FIELD(orbperix_device_info, engine_word1, PERIXInfo, engineWord1);
ORBPERIX_SAME_FIELD(orbperix_device_info, engine_word2, PERIXInfo, engineWord2);
ORBPERIX_SAME_FIELD(orbperix_device_info, connect_type, PERIXInfo, connectType);
ORBPERIX_SAME_FIELD(orbperix_device_info, session_key, PERIXInfo, sessionKey);

ORBPERIX_SAME_RECORD(orbperix_audio_param, AudioParam);
ORBPERIX_SAME_FIELD(orbperix_audio_param, param0, AudioParam, param0);
ORBPERIX_SAME_FIELD(orbperix_audio_param, param1, AudioParam, param1);
ORBPERIX_SAME_FIELD(orbperix_audio_param, param2, AudioParam, param2);
ORBPERIX_SAME_FIELD(orbperix_audio_param, param3, AudioParam, param3);
ORBPERIX_SAME_FIELD(orbperix_audio_param, param4, AudioParam, param4);
ORBPERIX_SAME_FIELD(orbperix_audio_param, param5, AudioParam, param5);
ORBPERIX_SAME_FIELD(orbperix_audio_param, param6, AudioParam, param6);

ORBPERIX_SAME_RECORD(orbperix_remote_event, RemoteCtrlEvent);
ORBPERIX_SAME_FIELD(orbperix_remote_event, header_flags, RemoteCtrlEvent, headerFlags);
ORBPERIX_SAME_FIELD(orbperix_remote_event, header_tag, RemoteCtrlEvent, headerTag);
ORBPERIX_SAME_FIELD(orbperix_remote_event, reserved, RemoteCtrlEvent, reserved);
ORBPERIX_SAME_FIELD(orbperix_remote_event, type, RemoteCtrlEvent, type);
ORBPERIX_SAME_FIELD(orbperix_remote_event, payload, RemoteCtrlEvent, payload);

ORBPERIX_SAME_RECORD(orbperix_remote_payload, RemoteCtrlPayload);
ORBPERIX_SAME_FIELD(orbperix_remote_payload, touch, RemoteCtrlPayload, touch);
ORBPERIX_SAME_FIELD(orbperix_remote_payload, key, RemoteCtrlPayload, key);
ORBPERIX_SAME_FIELD(orbperix_remote_payload, zoom, RemoteCtrlPayload, zoom);
ORBPERIX_SAME_FIELD(orbperix_remote_payload, scroll, RemoteCtrlPayload, scroll);
ORBPERIX_SAME_FIELD(orbperix_remote_payload, mouse, RemoteCtrlPayload, mouse);
ORBPERIX_SAME_FIELD(orbperix_remote_payload, wheel, RemoteCtrlPayload, wheel);
ORBPERIX_SAME_FIELD(orbperix_remote_payload, input, RemoteCtrlPayload, input);
ORBPERIX_SAME_FIELD(orbperix_remote_payload, virtual_key, RemoteCtrlPayload, virtualKey);
ORBPERIX_SAME_FIELD(orbperix_remote_payload, message, RemoteCtrlPayload, message);

ORBPERIX_SAME_RECORD(orbperix_remote_touch, RemoteTouchEvent);
ORBPERIX_SAME_FIELD(orbperix_remote_touch, action, RemoteTouchEvent, action);
ORBPERIX_SAME_FIELD(orbperix_remote_touch, pointer_count, RemoteTouchEvent, pointerCount);
ORBPERIX_SAME_FIELD(orbperix_remote_touch, pointer_ids, RemoteTouchEvent, pointerIds);
ORBPERIX_SAME_FIELD(orbperix_remote_touch, x, RemoteTouchEvent, x);
ORBPERIX_SAME_FIELD(orbperix_remote_touch, y, RemoteTouchEvent, y);

ORBPERIX_SAME_RECORD(orbperix_remote_key, RemoteKeyEvent);
ORBPERIX_SAME_FIELD(orbperix_remote_key, action, RemoteKeyEvent, action);
ORBPERIX_SAME_FIELD(orbperix_remote_key, key_reserved, RemoteKeyEvent, keyReserved);
ORBPERIX_SAME_FIELD(orbperix_remote_key, key_value1, RemoteKeyEvent, keyValue1);
ORBPERIX_SAME_FIELD(orbperix_remote_key, key_value2, RemoteKeyEvent, keyValue2);
ORBPERIX_SAME_FIELD(orbperix_remote_key, key_value3, RemoteKeyEvent, keyValue3);

ORBPERIX_SAME_RECORD(orbperix_remote_zoom, RemoteZoomEvent);
ORBPERIX_SAME_FIELD(orbperix_remote_zoom, x, RemoteZoomEvent, x);
ORBPERIX_SAME_FIELD(orbperix_remote_zoom, y, RemoteZoomEvent, y);
ORBPERIX_SAME_FIELD(orbperix_remote_zoom, zoom_value, RemoteZoomEvent, zoomValue);

ORBPERIX_SAME_RECORD(orbperix_remote_scroll, RemoteScrollEvent);
ORBPERIX_SAME_FIELD(orbperix_remote_scroll, action, RemoteScrollEvent, action);
ORBPERIX_SAME_FIELD(orbperix_remote_scroll, scroll_value, RemoteScrollEvent, scrollValue);

ORBPERIX_SAME_RECORD(orbperix_remote_mouse, RemoteMouseEvent);
ORBPERIX_SAME_FIELD(orbperix_remote_mouse, action, RemoteMouseEvent, action);
ORBPERIX_SAME_FIELD(orbperix_remote_mouse, button, RemoteMouseEvent, button);
ORBPERIX_SAME_FIELD(orbperix_remote_mouse, coords, RemoteMouseEvent, coords);

ORBPERIX_SAME_RECORD(orbperix_remote_wheel, RemoteWheelEvent);
ORBPERIX_SAME_FIELD(orbperix_remote_wheel, action, RemoteWheelEvent, action);
ORBPERIX_SAME_FIELD(orbperix_remote_wheel, buttons, RemoteWheelEvent, buttons);
ORBPERIX_SAME_FIELD(orbperix_remote_wheel, wheel_value, RemoteWheelEvent, wheelValue);
ORBPERIX_SAME_FIELD(orbperix_remote_wheel, x, RemoteWheelEvent, x);
ORBPERIX_SAME_FIELD(orbperix_remote_wheel, y, RemoteWheelEvent, y);

ORBPERIX_SAME_RECORD(orbperix_remote_input_content, RemoteInputContent);
ORBPERIX_SAME_FIELD(orbperix_remote_input_content, content_length, RemoteInputContent,
                    contentLength);
ORBPERIX_SAME_FIELD(orbperix_remote_input_content, content, RemoteInputContent, content);

ORBPERIX_SAME_RECORD(orbperix_remote_input_focus, RemoteInputFocus);
ORBPERIX_SAME_FIELD(orbperix_remote_input_focus, focus_flag, RemoteInputFocus, focusFlag);
ORBPERIX_SAME_FIELD(orbperix_remote_input_focus, focus_values, RemoteInputFocus, focusValues);

ORBPERIX_SAME_RECORD(orbperix_remote_input, RemoteInputEvent);
ORBPERIX_SAME_FIELD(orbperix_remote_input, action, RemoteInputEvent, action);
static_assert(offsetof(orbperix_remote_input, u.content) == offsetof(RemoteInputEvent, content) &&
                  offsetof(orbperix_remote_input, u.focus) == offsetof(RemoteInputEvent, focus),
              "orbperix_remote_input union differs from RemoteInputEvent");

ORBPERIX_SAME_RECORD(orbperix_remote_virtual_key, RemoteVirtualKeyEvent);
ORBPERIX_SAME_FIELD(orbperix_remote_virtual_key, action, RemoteVirtualKeyEvent, action);
ORBPERIX_SAME_FIELD(orbperix_remote_virtual_key, x, RemoteVirtualKeyEvent, x);
ORBPERIX_SAME_FIELD(orbperix_remote_virtual_key, y, RemoteVirtualKeyEvent, y);

ORBPERIX_SAME_RECORD(orbperix_remote_message, RemoteMessageEvent);
ORBPERIX_SAME_FIELD(orbperix_remote_message, action, RemoteMessageEvent, action);
ORBPERIX_SAME_FIELD(orbperix_remote_message, message_length, RemoteMessageEvent, messageLength);
ORBPERIX_SAME_FIELD(orbperix_remote_message, message_word, RemoteMessageEvent, messageWord);
ORBPERIX_SAME_FIELD(orbperix_remote_message, message_data, RemoteMessageEvent, messageData);

// Every code the library returns has its name in the C header, with the same value.
static_assert(ORBPERIX_C_OK == OrbPerix::kOk && ORBPERIX_C_ENCODE_FAILED == OrbPerix::kEncodeFailed &&
                  ORBPERIX_C_INVALID_ARGUMENT == OrbPerix::kInvalidArgument &&
                  ORBPERIX_C_NO_MEMORY == OrbPerix::kNoMemory &&
                  ORBPERIX_C_WRONG_STATE == OrbPerix::kWrongState &&
                  ORBPERIX_C_SINK_PORT_ZERO == OrbPerix::kZeroServerPort &&
                  ORBPERIX_C_SESSION_KEY_COPY == OrbPerix::kKeyCopyFailed &&
                  ORBPERIX_C_NOT_AVAILABLE == OrbPerix::kUnavailable,
              "a result code of the library differs from its name in orbperix_c.h");
