-- Wireshark dissector for OrbPerixProvider captures (pcapng, link type LINKTYPE_USER0 = 147).
--
-- Each packet is one record: an engine call (library -> engine), an engine notification
-- (engine -> library) or a host listener call (library -> host). Remote-control packets in
-- button writes are decoded field by field; the heartbeat is marked as such.
--
-- Load it with   wireshark -X lua_script:orbperix.lua capture.pcapng
--           or   tshark -X lua_script:orbperix.lua -r capture.pcapng
-- or copy it into Wireshark's personal plugins folder (Help > About > Folders).
--
-- Filter examples:  orbperix.op == "Button.ButtonWriteStreamBuffer"
--                   orbperix.rc.event == "mouse_down"     orbperix.payload_kind == 2
--                   orbperix.result != 0 && orbperix.flags.result

local p = Proto("orbperix", "OrbPerixProvider capture record")

local directions = { [0] = "library -> engine", [1] = "engine -> library", [2] = "library -> host" }
local payload_kinds = { [0] = "none", [1] = "remote-control packet", [2] = "heartbeat",
                        [3] = "button data", [4] = "audio", [5] = "partial refresh",
                        [6] = "binary data" }

local f = p.fields
f.version = ProtoField.uint8("orbperix.version", "Record version")
f.direction = ProtoField.uint8("orbperix.direction", "Direction", base.DEC, directions)
f.flags = ProtoField.uint8("orbperix.flags", "Flags", base.HEX)
f.flag_result = ProtoField.bool("orbperix.flags.result", "Has result", 8, nil, 0x01)
f.flag_truncated = ProtoField.bool("orbperix.flags.truncated", "Payload truncated", 8, nil, 0x02)
f.flag_text = ProtoField.bool("orbperix.flags.text_withheld", "Typed text withheld", 8, nil, 0x04)
f.flag_post = ProtoField.bool("orbperix.flags.since_post", "Has time since post", 8, nil, 0x08)
f.flag_threw = ProtoField.bool("orbperix.flags.listener_threw", "Listener threw", 8, nil, 0x10)
f.payload_kind = ProtoField.uint8("orbperix.payload_kind", "Payload kind", base.DEC, payload_kinds)
f.result = ProtoField.int32("orbperix.result", "Result")
f.thread = ProtoField.uint64("orbperix.thread", "Thread id")
f.handle = ProtoField.uint64("orbperix.handle", "Handle", base.HEX)
f.duration = ProtoField.uint64("orbperix.duration_ns", "Duration (ns)")
f.since_post = ProtoField.uint64("orbperix.since_post_ns", "Post to end of write (ns)")
f.aux = ProtoField.uint32("orbperix.aux", "Aux (service type, port or first word)")
f.payload_length = ProtoField.uint32("orbperix.payload_length", "Payload length")
f.checksum = ProtoField.uint32("orbperix.checksum", "Payload FNV-1a", base.HEX)
f.op = ProtoField.string("orbperix.op", "Operation")
f.device = ProtoField.string("orbperix.device", "Device id")
f.service = ProtoField.string("orbperix.service", "Service id")
f.payload = ProtoField.bytes("orbperix.payload", "Payload")
f.heartbeat = ProtoField.bool("orbperix.heartbeat", "Heartbeat")

-- Remote-control packet fields.
f.rc_flags = ProtoField.uint8("orbperix.rc.flags", "Header flags", base.HEX)
f.rc_class = ProtoField.uint8("orbperix.rc.class", "Class")
f.rc_length = ProtoField.uint16("orbperix.rc.length", "Packet length")
f.rc_tag = ProtoField.uint8("orbperix.rc.tag", "Tag", base.HEX)
f.rc_code = ProtoField.uint8("orbperix.rc.code", "Body code")
f.rc_body_length = ProtoField.uint16("orbperix.rc.body_length", "Body length")
f.rc_event = ProtoField.string("orbperix.rc.event", "Event")
f.rc_type = ProtoField.uint32("orbperix.rc.type", "Event type")
f.rc_action = ProtoField.uint32("orbperix.rc.action", "Action")
f.rc_pointer_count = ProtoField.uint8("orbperix.rc.pointer_count", "Pointers")
f.rc_pointer_id = ProtoField.uint8("orbperix.rc.pointer_id", "Pointer id")
f.rc_x = ProtoField.int16("orbperix.rc.x", "X")
f.rc_y = ProtoField.int16("orbperix.rc.y", "Y")
f.rc_coord = ProtoField.int16("orbperix.rc.coord", "Coordinate")
f.rc_key1 = ProtoField.uint16("orbperix.rc.key1", "Key value 1")
f.rc_key2 = ProtoField.uint16("orbperix.rc.key2", "Key value 2")
f.rc_key3 = ProtoField.uint32("orbperix.rc.key3", "Key value 3")
f.rc_zoom = ProtoField.uint16("orbperix.rc.zoom", "Zoom value (low byte first)")
f.rc_scroll = ProtoField.int16("orbperix.rc.scroll", "Scroll value")
f.rc_button = ProtoField.uint8("orbperix.rc.button", "Mouse button")
f.rc_focus_flag = ProtoField.uint8("orbperix.rc.focus_flag", "Focus flag")
f.rc_focus_value = ProtoField.int16("orbperix.rc.focus_value", "Focus value")
f.rc_wheel_buttons = ProtoField.uint8("orbperix.rc.wheel_buttons", "Wheel buttons (wire)", base.HEX)
f.rc_wheel_value = ProtoField.int16("orbperix.rc.wheel_value", "Wheel value")
f.rc_text_length = ProtoField.uint16("orbperix.rc.text_length", "Text length")
f.rc_text = ProtoField.bytes("orbperix.rc.text", "Text")
f.rc_message_word = ProtoField.uint16("orbperix.rc.message_word", "Message word", base.HEX)
f.rc_timestamp = ProtoField.uint32("orbperix.rc.timestamp_ms", "Timestamp (ms)")

-- Kind by header class and body code (codes 14 and 15 are mouse when the body length is 9).
local function identify(class, code, body_length)
  if class == 0 then
    if code == 14 or code == 15 then
      local action = code - 14
      if body_length == 9 then
        return "mouse", 6, action, action == 0 and "mouse_down" or "mouse_up"
      end
      return "touch", 0, action, action == 0 and "left_point_down" or "left_point_up"
    end
    local t = {
      [2] = { "touch", 0, 2, "left_move" }, [16] = { "mouse", 6, 2, "mouse_move" },
      [3] = { "key", 1, 0, "left_key_down" }, [4] = { "key", 1, 1, "left_key_up" },
      [5] = { "zoom", 2, 0, "zoom" }, [6] = { "scroll", 3, 0, "vertical_scroll" },
      [7] = { "scroll", 3, 1, "horizontal_scroll" }, [12] = { "wheel", 8, 0, "vertical_wheel" },
      [13] = { "wheel", 8, 1, "horizontal_wheel" } }
    local k = t[code]
    if k then return k[1], k[2], k[3], k[4] end
  elseif class == 2 then
    if code == 0 then return "content", 7, 0, "input_content" end
    if code == 1 then return "focus", 7, 1, "input_focus" end
  elseif class == 3 and code >= 2 and code <= 5 then
    local names = { [2] = "virtualkey_back", [3] = "virtualkey_home",
                    [4] = "virtualkey_recent_app", [5] = "virtualkey_quick_setting" }
    return "virtualkey", 9, code - 2, names[code]
  elseif class == 4 and (code == 6 or code == 7) then
    return "message", 10, code - 6, code == 6 and "message_extend" or "message_reserved"
  end
  return nil
end

local function dissect_remote(buf, tree)
  local size = buf:len()
  local t = tree:add(p, buf, "Remote-control packet")
  if size < 17 then
    t:add_expert_info(PI_MALFORMED, PI_ERROR, "too short for a remote-control packet")
    return nil
  end
  t:add(f.rc_flags, buf(0, 1))
  t:add(f.rc_class, buf(1, 1))
  t:add(f.rc_length, buf(2, 2))
  t:add(f.rc_tag, buf(4, 1))
  local class, code, body_length = buf(1, 1):uint(), buf(10, 1):uint(), buf(11, 2):uint()
  local kind, type_, action, name = identify(class, code, body_length)
  local body = t:add(p, buf(10), "Body")
  body:add(f.rc_code, buf(10, 1))
  body:add(f.rc_body_length, buf(11, 2))
  if not kind then
    body:add_expert_info(PI_MALFORMED, PI_WARN, "unknown class/code")
    return nil
  end
  body:add(f.rc_event, name)
  body:add(f.rc_type, type_)
  body:add(f.rc_action, action)
  local b = 13  -- first field byte
  local body_size
  local function have(n) return b + n <= size end
  if kind == "touch" then
    local n = buf(b, 1):uint()
    body:add(f.rc_pointer_count, buf(b, 1))
    for i = 0, n - 1 do
      local at = b + 1 + 5 * i
      if at + 5 > size then break end
      local pt = body:add(p, buf(at, 5), "Pointer " .. i)
      pt:add(f.rc_pointer_id, buf(at, 1))
      pt:add(f.rc_x, buf(at + 1, 2))
      pt:add(f.rc_y, buf(at + 3, 2))
    end
    body_size = 9 * n + 4
  elseif kind == "key" and have(9) then
    body:add(f.rc_key1, buf(b + 1, 2))
    body:add(f.rc_key2, buf(b + 3, 2))
    body:add(f.rc_key3, buf(b + 5, 4))
    body_size = 12
  elseif kind == "zoom" and have(6) then
    body:add(f.rc_x, buf(b, 2))
    body:add(f.rc_y, buf(b + 2, 2))
    body:add_le(f.rc_zoom, buf(b + 4, 2))
    body_size = 9
  elseif kind == "scroll" and have(2) then
    body:add(f.rc_scroll, buf(b, 2))
    body_size = 5
  elseif kind == "mouse" and have(9) then
    body:add(f.rc_button, buf(b, 1))
    body:add(f.rc_x, buf(b + 1, 2))
    body:add(f.rc_y, buf(b + 3, 2))
    for i = 0, 3 do body:add(f.rc_coord, buf(b + 1 + 2 * i, 2)) end
    body_size = 12
  elseif kind == "focus" and have(9) then
    body:add(f.rc_focus_flag, buf(b, 1))
    for i = 0, 3 do body:add(f.rc_focus_value, buf(b + 1 + 2 * i, 2)) end
    body_size = 12
  elseif kind == "wheel" and have(7) then
    body:add(f.rc_wheel_buttons, buf(b, 1))
    body:add(f.rc_wheel_value, buf(b + 1, 2))
    body:add(f.rc_x, buf(b + 3, 2))
    body:add(f.rc_y, buf(b + 5, 2))
    body_size = 10
  elseif kind == "virtualkey" and have(4) then
    body:add(f.rc_x, buf(b, 2))
    body:add(f.rc_y, buf(b + 2, 2))
    body_size = 7
  elseif kind == "content" and have(2) then
    local n = buf(b, 2):uint()
    body:add(f.rc_text_length, buf(b, 2))
    if n > 0 and b + 2 + n <= size then body:add(f.rc_text, buf(b + 2, n)) end
    body_size = n + 5
  elseif kind == "message" and have(4) then
    local m = buf(b, 2):uint()
    body:add(f.rc_text_length, buf(b, 2))
    body:add(f.rc_message_word, buf(b + 2, 2))
    if m > 2 and b + 2 + m <= size then body:add(f.rc_text, buf(b + 4, m - 2)) end
    body_size = m + 5
  else
    body:add_expert_info(PI_MALFORMED, PI_ERROR, "body truncated")
    return name
  end
  local ts_at = 10 + body_size
  if ts_at + 4 <= size then
    t:add(f.rc_timestamp, buf(ts_at, 4))
  else
    t:add_expert_info(PI_MALFORMED, PI_WARN, "no room for the timestamp")
  end
  return name
end

function p.dissector(buf, pinfo, tree)
  if buf:len() < 60 then return 0 end
  pinfo.cols.protocol = "OrbPerix"
  local t = tree:add(p, buf(), "OrbPerixProvider record")
  t:add(f.version, buf(0, 1))
  t:add(f.direction, buf(1, 1))
  local fl = t:add(f.flags, buf(2, 1))
  fl:add(f.flag_result, buf(2, 1))
  fl:add(f.flag_truncated, buf(2, 1))
  fl:add(f.flag_text, buf(2, 1))
  fl:add(f.flag_post, buf(2, 1))
  fl:add(f.flag_threw, buf(2, 1))
  t:add(f.payload_kind, buf(3, 1))
  local flags = buf(2, 1):uint()
  if bit32 and bit32.band(flags, 1) ~= 0 or (not bit32 and flags % 2 == 1) then
    t:add_le(f.result, buf(4, 4))
  end
  t:add_le(f.thread, buf(8, 8))
  t:add_le(f.handle, buf(16, 8))
  t:add_le(f.duration, buf(24, 8))
  t:add_le(f.since_post, buf(32, 8))
  t:add_le(f.aux, buf(40, 4))
  t:add_le(f.payload_length, buf(44, 4))
  t:add_le(f.checksum, buf(48, 4))
  local n, d, s = buf(52, 1):uint(), buf(53, 1):uint(), buf(54, 1):uint()
  local captured = buf(56, 2):le_uint()
  if 60 + n + d + s + captured > buf:len() then
    t:add_expert_info(PI_MALFORMED, PI_ERROR, "record lengths run past the packet")
    return
  end
  local at = 60
  local op = buf(at, n):string()
  t:add(f.op, buf(at, n))
  at = at + n
  if d > 0 then t:add(f.device, buf(at, d)) end
  at = at + d
  if s > 0 then t:add(f.service, buf(at, s)) end
  at = at + s
  local kind = buf(3, 1):uint()
  local info = directions[buf(1, 1):uint()] .. " " .. op
  if captured > 0 then
    local payload = buf(at, captured)
    t:add(f.payload, payload)
    if kind == 1 then
      local name = dissect_remote(payload:tvb(), t)
      if name then info = info .. " " .. name end
    elseif kind == 2 then
      t:add(f.heartbeat, true)
      info = info .. " heartbeat"
    end
  end
  if bit32 and bit32.band(flags, 1) ~= 0 or (not bit32 and flags % 2 == 1) then
    info = info .. " -> " .. buf(4, 4):le_int()
  end
  pinfo.cols.info = info
end

local encap = (wtap_encaps and wtap_encaps.USER0) or wtap.USER0
DissectorTable.get("wtap_encap"):add(encap, p)
