#!/usr/bin/env python3
"""OrbPerixProvider from Python through its flat C interface (ctypes only).

A short host session against the simulated PERIX engine: initialise, an input provider with a
listener, connect, post remote-control events, an audio write through a source provider,
disconnect, finalise.

    python3 examples/python/demo.py            run the session
    python3 examples/python/demo.py --check    run it and verify what the simulated peer
                                               recorded; exit 1 on any difference

The library is taken from $ORBPERIX_LIB (the library file or its folder), else from
build/linux/bin of this repository. By default the library loads the engine from the folder of
the running executable, which for Python is the interpreter's; the demo names the library's
folder instead (orbperix_set_engine_path), where the build put the simulated engine. A host that
cannot make that call sets ORBPERIX_ENGINE_PATH to the same effect.
"""
import ctypes as C
import os
import sys

REPO = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
LIB_NAME = "OrbPerixProvider.dll" if os.name == "nt" else "libOrbPerixProvider.so"
ENGINE_NAME = "liborbperix.dll" if os.name == "nt" else "liborbperix.so"
# The simulated engine's core: its control functions (the engine module exports only getters).
SIM_CORE_NAME = "libperixsim.dll" if os.name == "nt" else "libperixsim.so"


def find_library():
    hint = os.environ.get("ORBPERIX_LIB")
    candidates = []
    if hint:
        candidates.append(os.path.join(hint, LIB_NAME) if os.path.isdir(hint) else hint)
    else:
        candidates.append(os.path.join(REPO, "build", "linux", "bin", LIB_NAME))
    for path in candidates:
        if os.path.isfile(path):
            return os.path.abspath(path)
    print("demo.py: OrbPerixProvider not found (looked for %s)." % ", ".join(candidates))
    print("Build it first, from the repository root:")
    print("    cmake --preset linux && cmake --build --preset linux")
    print("or point ORBPERIX_LIB at the library file or its folder.")
    sys.exit(2)


def require_engine(lib_dir):
    """The simulated engine must lie beside the library: the demo points the library there."""
    if not os.path.isfile(os.path.join(lib_dir, ENGINE_NAME)):
        print("demo.py: the simulated engine %s is not beside the library in %s;" % (ENGINE_NAME, lib_dir))
        print("build the whole project (cmake --build --preset linux), not only the library.")
        sys.exit(2)


# ---- C records (orbperix/orbperix_c.h) ----

class DeviceInfo(C.Structure):
    _fields_ = [("engine_word0", C.c_uint32), ("local_device_id", C.c_char * 258),
                ("peer_device_id", C.c_char * 258), ("local_device_id_len", C.c_uint32),
                ("peer_device_id_len", C.c_uint32), ("engine_reserved", C.c_uint8 * 120),
                ("server_port", C.c_int32), ("engine_word1", C.c_uint32),
                ("engine_word2", C.c_uint32), ("connect_type", C.c_uint32),
                ("session_key", C.c_uint8 * 128)]


class Service(C.Structure):
    _fields_ = [("device_id", C.c_char_p), ("device_id_len", C.c_int32),
                ("service_id", C.c_char_p), ("service_id_len", C.c_int32),
                ("service_type", C.c_uint32)]


class Mouse(C.Structure):
    _fields_ = [("action", C.c_uint32), ("button", C.c_uint8), ("coords", C.c_double * 4)]


class Key(C.Structure):
    _fields_ = [("action", C.c_uint32), ("key_reserved", C.c_uint16), ("key_value1", C.c_uint16),
                ("key_value2", C.c_uint16), ("key_value3", C.c_uint32)]


class InputContent(C.Structure):
    _fields_ = [("action", C.c_uint32), ("_pad", C.c_uint32),
                ("content_length", C.c_uint16), ("content", C.c_uint8 * 472)]


class Payload(C.Union):
    _fields_ = [("mouse", Mouse), ("key", Key), ("input", InputContent),
                ("_size", C.c_double * 61)]  # 488 bytes, 8-byte aligned


class RemoteEvent(C.Structure):
    _fields_ = [("header_flags", C.c_uint32), ("header_tag", C.c_uint32),
                ("reserved", C.c_uint32), ("type", C.c_uint32), ("payload", Payload)]


class ButtonNotify(C.Structure):
    _fields_ = [("word0", C.c_uint32), ("word1", C.c_uint32),
                ("data", C.POINTER(C.c_uint8)), ("data_len", C.c_uint32)]


ON_BUTTON = C.CFUNCTYPE(None, C.c_void_p, C.POINTER(Service), C.POINTER(ButtonNotify))


class Listener(C.Structure):
    _fields_ = [("on_device_change", C.c_void_p), ("on_service_change", C.c_void_p),
                ("on_data", C.c_void_p), ("on_audio", C.c_void_p),
                ("on_button", ON_BUTTON), ("on_partial_refresh", C.c_void_p)]


class AudioParam(C.Structure):
    _fields_ = [("param0", C.c_uint32), ("param1", C.c_uint32), ("param2", C.c_uint32),
                ("param3", C.c_uint32), ("param4", C.c_uint32), ("param5", C.c_uint64),
                ("param6", C.c_uint32)]


# ---- Simulated engine records (sim/engine/perix_sim_peer.h, perix_sim_streams.h) ----

class SimPacket(C.Structure):
    _fields_ = [("heartbeat", C.c_int), ("decoded", C.c_int), ("length", C.c_uint32),
                ("bytes", C.c_uint8 * 520), ("device_id", C.c_char * 260),
                ("service_id", C.c_char * 260), ("type", C.c_uint32), ("action", C.c_uint32),
                ("timestamp_ms", C.c_uint32), ("description", C.c_char * 512)]


class SimStreamStats(C.Structure):
    _fields_ = [("opens", C.c_uint32), ("closes", C.c_uint32), ("openServices", C.c_uint32),
                ("buffers", C.c_uint64), ("bytes", C.c_uint64), ("checksum", C.c_uint64),
                ("lastLength", C.c_uint32), ("unreadable", C.c_uint64),
                ("toClosedService", C.c_uint64)]


def bind(lib):
    u64 = C.c_uint64
    sigs = {
        "orbperix_set_engine_path": (C.c_int, [C.c_char_p]),
        "orbperix_initialize": (C.c_int, [C.c_void_p, C.c_char_p]),
        "orbperix_is_initialized": (C.c_int, []),
        "orbperix_finalize": (None, []),
        "orbperix_create_input_provider": (u64, []),
        "orbperix_create_source_provider": (u64, []),
        "orbperix_destroy_input_provider": (C.c_int, [u64]),
        "orbperix_destroy_source_provider": (C.c_int, [u64]),
        "orbperix_input_init": (C.c_int, [u64]),
        "orbperix_input_deinit": (C.c_int, [u64]),
        "orbperix_input_register_listener": (C.c_int, [u64, C.POINTER(DeviceInfo), C.POINTER(Listener), C.c_void_p]),
        "orbperix_input_connect_device": (C.c_int, [u64, C.POINTER(DeviceInfo)]),
        "orbperix_input_disconnect_device": (C.c_int, [u64, C.POINTER(DeviceInfo)]),
        "orbperix_input_start_device_service": (C.c_int, [u64, C.POINTER(Service), C.c_void_p]),
        "orbperix_input_open_button": (C.c_int, [u64, C.POINTER(Service), C.c_void_p]),
        "orbperix_input_close_button": (C.c_int, [u64, C.POINTER(Service), C.c_void_p, C.c_void_p]),
        "orbperix_input_post_remote_ctrl_event": (C.c_int, [u64, C.POINTER(Service), C.POINTER(RemoteEvent)]),
        "orbperix_source_init": (C.c_int, [u64]),
        "orbperix_source_deinit": (C.c_int, [u64]),
        "orbperix_source_register_listener": (C.c_int, [u64, C.POINTER(DeviceInfo), C.POINTER(Listener), C.c_void_p]),
        "orbperix_source_connect_device": (C.c_int, [u64, C.POINTER(DeviceInfo)]),
        "orbperix_source_disconnect_device": (C.c_int, [u64, C.POINTER(DeviceInfo)]),
        "orbperix_source_open_audio": (C.c_int, [u64, C.POINTER(Service), C.POINTER(AudioParam)]),
        "orbperix_source_audio_write_stream_buffer": (C.c_int, [u64, C.POINTER(Service), C.c_char_p, C.c_uint32]),
        "orbperix_source_close_audio": (C.c_int, [u64, C.POINTER(Service)]),
    }
    for name, (res, args) in sigs.items():
        fn = getattr(lib, name)
        fn.restype, fn.argtypes = res, args


def device(peer):
    d = DeviceInfo()
    d.local_device_id, d.local_device_id_len = b"python-host", 11
    d.peer_device_id, d.peer_device_id_len = peer, len(peer)
    d.server_port, d.connect_type = 5, 1
    return d


def service(dev, svc, kind):
    return Service(dev, -1, svc, -1, kind)


def events():
    move = RemoteEvent(type=6)            # mouse move to (120, 80)
    move.payload.mouse.action, move.payload.mouse.button = 2, 1
    move.payload.mouse.coords[:] = [120.0, 80.0, 1920.0, 1080.0]
    key = RemoteEvent(type=1)             # key down
    key.payload.key.action, key.payload.key.key_value1 = 0, 0x41
    text = RemoteEvent(type=7)            # text input "hi"
    text.payload.input.action, text.payload.input.content_length = 0, 2
    text.payload.input.content[0], text.payload.input.content[1] = ord("h"), ord("i")
    return [("mouse move", move, 6), ("key down", key, 1), ("text input", text, 7)]


def step(what, result, expected=0):
    print("%-44s -> %d" % (what, result))
    if result != expected:
        raise SystemExit("demo.py: %s gave %d, expected %d" % (what, result, expected))


def main():
    check = "--check" in sys.argv[1:]
    lib_path = find_library()
    lib_dir = os.path.dirname(lib_path)
    require_engine(lib_dir)
    lib = C.CDLL(lib_path)
    bind(lib)
    sim = C.CDLL(os.path.join(os.path.dirname(lib_path), SIM_CORE_NAME))  # shared by the engine the library loads
    sim.perix_sim_reset()
    sim.perix_sim_set_auto_open(1)        # the peer reports the button channel open

    opened = []

    @ON_BUTTON
    def on_button(user_data, svc, info):  # engine thread; pointers valid during the call only
        opened.append((C.cast(user_data, C.c_char_p).value, info.contents.word0, info.contents.word1))

    listener = Listener(on_button=on_button)
    tag = C.c_char_p(b"python listener")

    step("engine path: the library's folder", lib.orbperix_set_engine_path(lib_dir.encode("utf-8")))
    step("initialise", lib.orbperix_initialize(None, b"python-demo"))
    input_ = lib.orbperix_create_input_provider()
    step("input provider created", int(input_ != 0), 1)
    step("input init", lib.orbperix_input_init(input_))
    peer = device(b"peer-py")
    step("register listener", lib.orbperix_input_register_listener(input_, peer, listener, C.cast(tag, C.c_void_p)))
    step("connect", lib.orbperix_input_connect_device(input_, peer))
    button = service(b"peer-py", b"button-0", 6)
    step("start button service", lib.orbperix_input_start_device_service(input_, button, None))
    step("open button channel", lib.orbperix_input_open_button(input_, button, None))
    sent = events()
    for name, event, _ in sent:
        step("post " + name, lib.orbperix_input_post_remote_ctrl_event(input_, button, event))

    source = lib.orbperix_create_source_provider()
    step("source provider created", int(source != 0), 1)
    step("source init", lib.orbperix_source_init(source))
    audio_peer = device(b"peer-py")
    step("source register listener", lib.orbperix_source_register_listener(source, audio_peer, Listener(), None))
    step("source connect", lib.orbperix_source_connect_device(source, audio_peer))
    audio = service(b"peer-py", b"audio-0", 0)
    step("open audio", lib.orbperix_source_open_audio(source, audio, AudioParam(48000, 2, 16, 0, 0, 0, 0)))
    pcm = bytes(range(32))
    step("audio write (32 bytes)", lib.orbperix_source_audio_write_stream_buffer(source, audio, pcm, len(pcm)))
    step("close audio", lib.orbperix_source_close_audio(source, audio))

    sim.perix_sim_peer_flush()            # deliver the peer's "opened" notification
    step("close button channel", lib.orbperix_input_close_button(input_, button, None, None))
    step("disconnect (input)", lib.orbperix_input_disconnect_device(input_, peer))
    step("disconnect (source)", lib.orbperix_source_disconnect_device(source, audio_peer))
    step("input deinit", lib.orbperix_input_deinit(input_))
    step("source deinit", lib.orbperix_source_deinit(source))
    step("destroy input provider", lib.orbperix_destroy_input_provider(input_), 1)
    step("destroy source provider", lib.orbperix_destroy_source_provider(source), 1)
    lib.orbperix_finalize()
    step("finalised", lib.orbperix_is_initialized(), 0)
    print("listener calls: %s" % opened)

    if check:
        return verify(sim, sent, pcm, opened)
    return 0


def verify(sim, sent, pcm, opened):
    """What the simulated peer recorded must be exactly what the session sent."""
    problems = []
    sim.perix_sim_peer_packet_count.restype = C.c_int
    count = sim.perix_sim_peer_packet_count()
    if count != len(sent):
        problems.append("peer received %d input packets, expected %d" % (count, len(sent)))
    for i, (name, _, kind) in enumerate(sent[:count]):
        p = SimPacket()
        sim.perix_sim_peer_get_packet(i, C.byref(p))
        print("peer packet %d: %s" % (i, p.description.decode(errors="replace")))
        if not p.decoded or p.type != kind or p.device_id != b"peer-py" or p.service_id != b"button-0":
            problems.append("packet %d (%s): decoded=%d type=%d device=%r service=%r" %
                            (i, name, p.decoded, p.type, p.device_id, p.service_id))
    stats = SimStreamStats()
    sim.perix_sim_stream_stats_of(0, C.byref(stats))
    sim.perix_sim_fnv1a.restype = C.c_uint64
    sim.perix_sim_fnv1a.argtypes = [C.c_uint64, C.c_char_p, C.c_size_t]
    expected = sim.perix_sim_fnv1a(0xcbf29ce484222325, pcm, len(pcm))
    if (stats.opens, stats.closes, stats.buffers, stats.bytes, stats.checksum) != (1, 1, 1, len(pcm), expected):
        problems.append("audio at the peer: opens %d closes %d buffers %d bytes %d checksum %x" %
                        (stats.opens, stats.closes, stats.buffers, stats.bytes, stats.checksum))
    if (b"python listener", 1, 0) not in opened:
        problems.append("the listener did not receive the channel-open notification with its user data")
    for p in problems:
        print("CHECK FAILED: " + p)
    print("check: %s" % ("peer recorded exactly the session" if not problems else "%d problem(s)" % len(problems)))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
