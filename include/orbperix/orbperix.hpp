// OrbPerixProvider for C++ hosts built with any compiler: a header-only C++17 layer over the C
// interface (orbperix_c.h).
//
// The library is C++ inside and C at its boundary; this header turns the C functions back into
// C++ in the host's own compiler, so a host built with MSVC, clang or another standard library
// than the library's gets owners, views and callables without binding itself to the library's
// C++ ABI. The header calls nothing but orbperix_* C functions: a program built on it imports no
// C++ symbol from the library.
//
// - Owners (Manager, InputProvider, SourceProvider, SinkProvider, CastSession) are move-only;
//   each destroys what it owns when it goes. An empty or moved-from owner is safe to call: the
//   call reaches the C function with handle 0, which returns kBadHandle and logs one line.
// - Texts come in as std::string_view, bytes as Bytes (pointer and size). A view longer than
//   the C interface can carry gives kInvalidArgument and one log line; nothing is cut.
// - Listeners are any callables. The owner keeps them alive until it is gone, and before they
//   go it de-initialises its provider kind (which forgets the kind's listeners) and destroys
//   its provider, then waits for listener calls under way to return.
// - Results are Code values equal to the C++ interface's result codes (0 success, -1, -2, -3,
//   -4, -5, -9, -13, the engine's own values) plus kBadHandle; ResultText says what one means.
//   No exception is needed: the header compiles with exceptions disabled. With exceptions
//   enabled, a listener that throws is caught before it reaches the library's thread; the owner
//   then reports kListenerThrew once (ListenerError()) and one error line is logged.
//
// Threads: as the C interface (every call from any thread; a sink's calls serialised by the
// host). An owner object itself is not synchronised: do not move or destroy it while another
// thread calls it. Listener callables run on the engine's threads.
#ifndef ORBPERIX_ORBPERIX_HPP_
#define ORBPERIX_ORBPERIX_HPP_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <new>
#include <string_view>
#include <thread>
#include <utility>

#include "orbperix/orbperix_c.h"

#if defined(__cpp_exceptions) || defined(__EXCEPTIONS) || defined(_CPPUNWIND)
#define ORBPERIX_HPP_EXCEPTIONS 1
#else
#define ORBPERIX_HPP_EXCEPTIONS 0
#endif

namespace orbperix {

// ---- Results ----

// A result code. Its value is the C++ interface's code for the same operation.
class [[nodiscard]] Code {
public:
    constexpr explicit Code(int value) noexcept : value_(value) {}
    constexpr int value() const noexcept { return value_; }
    constexpr bool ok() const noexcept { return value_ == 0; }
    friend constexpr bool operator==(Code a, Code b) noexcept { return a.value_ == b.value_; }
    friend constexpr bool operator!=(Code a, Code b) noexcept { return a.value_ != b.value_; }

private:
    int value_;
};

inline constexpr Code kOk{ORBPERIX_C_OK};
inline constexpr Code kEncodeFailed{ORBPERIX_C_ENCODE_FAILED};
inline constexpr Code kInvalidArgument{ORBPERIX_C_INVALID_ARGUMENT};
inline constexpr Code kNoMemory{ORBPERIX_C_NO_MEMORY};
inline constexpr Code kWrongState{ORBPERIX_C_WRONG_STATE};
inline constexpr Code kSinkPortZero{ORBPERIX_C_SINK_PORT_ZERO};
inline constexpr Code kSessionKeyCopy{ORBPERIX_C_SESSION_KEY_COPY};
inline constexpr Code kNotAvailable{ORBPERIX_C_NOT_AVAILABLE};
inline constexpr Code kBadHandle{ORBPERIX_C_BAD_HANDLE};
// This layer's own: a listener callable threw (reported by the owner, see ListenerError).
inline constexpr Code kListenerThrew{ORBPERIX_C_LISTENER_THREW};

// A short English text for `code` (static; a code without a name gets one with its number).
inline const char* ResultText(Code code) noexcept { return orbperix_result_text(code.value()); }

// ---- Views in and out ----

// Bytes lent for the length of a call (in) or of a listener call (out).
struct Bytes {
    const uint8_t* data = nullptr;
    size_t size = 0;
    const uint8_t* begin() const noexcept { return data; }
    const uint8_t* end() const noexcept { return data + size; }
    bool empty() const noexcept { return size == 0; }
};

// A host service (device id, service id, type: 6 button, 11 partial refresh).
struct Service {
    std::string_view device_id;
    std::string_view service_id;
    uint32_t type = 0;
};

// Binary data with its two header words.
struct Binary {
    uint32_t word0 = 0;
    uint32_t word1 = 0;
    Bytes data;
};

// The records the C interface takes as they are.
using DeviceInfo = orbperix_device_info;
using RemoteEvent = orbperix_remote_event;
using AudioParam = orbperix_audio_param;
using CastSessionProperty = orbperix_cast_session_property;

// Notifications; every view is valid only during the listener call.
struct DeviceChange {
    std::string_view device_id;
    uint32_t word0;
    uint32_t word1;
};
struct ServiceChange {
    std::string_view device_id;
    std::string_view service_id;
    uint32_t word0;
    uint32_t word1;
    uint32_t word2;
};
struct StreamData {
    uint32_t a;
    uint32_t b;
    uint32_t reserved;
    Bytes data;
};

// A provider's notification callables; an empty one means "not wanted". Called on engine
// threads.
struct Listener {
    std::function<void(const DeviceChange&)> on_device_change;
    std::function<void(const ServiceChange&)> on_service_change;
    std::function<void(std::string_view device_id, const Binary&)> on_data;
    std::function<void(const Service&, const StreamData&)> on_audio;
    std::function<void(const Service&, const Binary&)> on_button;
    std::function<void(const Service&, const StreamData&)> on_partial_refresh;
};

namespace detail {

// How long an owner's teardown waits for listener calls under way on other threads.
constexpr uint32_t kListenerWaitMs = 10000;

// One error line through the library's log (scope "orbperix::<where>").
inline Code Fail(Code code, const char* where, const char* message) noexcept {
    orbperix_log_error(where, message);
    return code;
}

constexpr size_t kMaxText = 0x7FFFFFFF;  // int32_t lengths

inline bool Fits(std::string_view text) noexcept { return text.size() <= kMaxText; }

inline int32_t LengthOf(std::string_view text) noexcept {
    return static_cast<int32_t>(text.size());
}

inline orbperix_service ToC(const Service& s) noexcept {
    return orbperix_service{s.device_id.data(), LengthOf(s.device_id), s.service_id.data(),
                            LengthOf(s.service_id), s.type};
}

inline bool Fits(const Service& s) noexcept { return Fits(s.device_id) && Fits(s.service_id); }

inline bool Fits(const Binary& b) noexcept { return b.data.size <= UINT32_MAX; }

inline orbperix_binary ToC(const Binary& b) noexcept {
    return orbperix_binary{b.word0, b.word1, b.data.data, static_cast<uint32_t>(b.data.size)};
}

inline Bytes BytesOf(const uint8_t* data, uint32_t len) noexcept { return Bytes{data, len}; }

inline std::string_view TextOf(const char* text, uint32_t len) noexcept {
    return text == nullptr ? std::string_view() : std::string_view(text, len);
}

inline Service ServiceOf(const orbperix_service* s) noexcept {
    return Service{TextOf(s->device_id, static_cast<uint32_t>(s->device_id_len)),
                   TextOf(s->service_id, static_cast<uint32_t>(s->service_id_len)),
                   s->service_type};
}

// Runs a host callable at the C boundary: no exception goes back into the library's thread.
class Guard {
public:
    template <typename F>
    void Run(const char* where, F&& f) noexcept {
        calls_.fetch_add(1, std::memory_order_acq_rel);
        const Frame frame{this, t_top};
        t_top = &frame;
#if ORBPERIX_HPP_EXCEPTIONS
        try {
            f();
        } catch (...) {
            failures_.fetch_add(1, std::memory_order_relaxed);
            orbperix_log_error(where, "listener threw; the exception was dropped");
        }
#else
        f();
        (void)where;
#endif
        t_top = frame.outer;
        if (calls_.fetch_sub(1, std::memory_order_acq_rel) == 1 && free_ != nullptr) {
            free_(box_);  // the last statement: this guard is gone with its box
        }
    }
    // Waits until no call of this guard is under way on another thread (the owner's teardown).
    // True when the calling thread is itself inside one (an owner going from inside its own
    // listener): that call still runs on the guard's box, so the caller must not free it.
    bool Drain() const noexcept {
        uint32_t own = 0;
        for (const Frame* frame = t_top; frame != nullptr; frame = frame->outer) {
            own += frame->guard == this ? 1u : 0u;
        }
        while (calls_.load(std::memory_order_acquire) > own) {
            std::this_thread::yield();
        }
        return own != 0;
    }
    // Has the call under way on this thread free `box` (the guard's own box) when it ends.
    // Only for an owner going from inside its own listener, on that listener's thread.
    void FreeWhenDone(void (*free)(void*), void* box) noexcept {
        box_ = box;
        free_ = free;
    }
    Code TakeFailure() noexcept {
        return failures_.exchange(0, std::memory_order_acq_rel) != 0 ? kListenerThrew : kOk;
    }

private:
    // The guards whose calls the current thread is inside, innermost first.
    struct Frame {
        const Guard* guard;
        const Frame* outer;
    };
    static inline thread_local const Frame* t_top = nullptr;

    std::atomic<uint32_t> calls_{0};
    std::atomic<uint32_t> failures_{0};
    void (*free_)(void*) = nullptr;
    void* box_ = nullptr;
};

// Frees a listener box once no other thread is inside its listener. When the calling thread
// is (an owner destroyed from inside its own listener), the box is freed as that call ends:
// freeing it now would destroy the callable that is running.
template <typename Box>
void FreeUnlessRunning(Box* box) noexcept {
    if (box->guard.Drain()) {
        box->guard.FreeWhenDone([](void* b) { delete static_cast<Box*>(b); }, box);
    } else {
        delete box;
    }
}

// A listener kept by its owner; boxes form a list freed only when the owner goes, because the
// library may still call a forgotten listener that was already under way.
struct ListenerBox {
    Listener listener;
    Guard guard;
    ListenerBox* next = nullptr;

    static ListenerBox& Of(void* user_data) noexcept {
        return *static_cast<ListenerBox*>(user_data);
    }

    static void DeviceChangeFn(void* u, const orbperix_device_change* c) noexcept {
        ListenerBox& box = Of(u);
        box.guard.Run("orbperix::Listener::on_device_change", [&] {
            box.listener.on_device_change(
                DeviceChange{TextOf(c->device_id, c->device_id_len), c->word0, c->word1});
        });
    }
    static void ServiceChangeFn(void* u, const orbperix_service_change* c) noexcept {
        ListenerBox& box = Of(u);
        box.guard.Run("orbperix::Listener::on_service_change", [&] {
            box.listener.on_service_change(ServiceChange{TextOf(c->device_id, c->device_id_len),
                                                         TextOf(c->service_id, c->service_id_len),
                                                         c->word0, c->word1, c->word2});
        });
    }
    static void DataFn(void* u, const char* id, uint32_t len, const orbperix_binary* d) noexcept {
        ListenerBox& box = Of(u);
        box.guard.Run("orbperix::Listener::on_data", [&] {
            box.listener.on_data(TextOf(id, len),
                                 Binary{d->word0, d->word1, BytesOf(d->data, d->len)});
        });
    }
    static StreamData StreamOf(const orbperix_stream_data* d) noexcept {
        return StreamData{d->a, d->b, d->reserved, BytesOf(d->data, d->data_len)};
    }
    static void AudioFn(void* u, const orbperix_service* s,
                        const orbperix_stream_data* d) noexcept {
        ListenerBox& box = Of(u);
        box.guard.Run("orbperix::Listener::on_audio",
                      [&] { box.listener.on_audio(ServiceOf(s), StreamOf(d)); });
    }
    static void ButtonFn(void* u, const orbperix_service* s,
                         const orbperix_button_notify* n) noexcept {
        ListenerBox& box = Of(u);
        box.guard.Run("orbperix::Listener::on_button", [&] {
            box.listener.on_button(ServiceOf(s),
                                   Binary{n->word0, n->word1, BytesOf(n->data, n->data_len)});
        });
    }
    static void RefreshFn(void* u, const orbperix_service* s,
                          const orbperix_stream_data* d) noexcept {
        ListenerBox& box = Of(u);
        box.guard.Run("orbperix::Listener::on_partial_refresh",
                      [&] { box.listener.on_partial_refresh(ServiceOf(s), StreamOf(d)); });
    }

    // The C listener record: an entry only where a callable is set.
    orbperix_listener Record() const noexcept {
        orbperix_listener c{};
        c.on_device_change = listener.on_device_change ? &DeviceChangeFn : nullptr;
        c.on_service_change = listener.on_service_change ? &ServiceChangeFn : nullptr;
        c.on_data = listener.on_data ? &DataFn : nullptr;
        c.on_audio = listener.on_audio ? &AudioFn : nullptr;
        c.on_button = listener.on_button ? &ButtonFn : nullptr;
        c.on_partial_refresh = listener.on_partial_refresh ? &RefreshFn : nullptr;
        return c;
    }
};

// Moves a handle out of an owner (the moved-from owner holds 0).
inline uint64_t Take(uint64_t& handle) noexcept { return std::exchange(handle, uint64_t{0}); }

// The C functions of one provider kind that the input and source providers share: the same
// names with the kind's word in them. Not constexpr: the address of a function imported from a
// DLL is no constant expression for every compiler.
#define ORBPERIX_HPP_PROVIDER_FNS(kind, name)                                                     \
    static inline const auto create = &orbperix_create_##kind##_provider;                         \
    static inline const auto destroy = &orbperix_destroy_##kind##_provider;                       \
    static inline const auto init = &orbperix_##kind##_init;                                      \
    static inline const auto deinit = &orbperix_##kind##_deinit;                                  \
    static inline const auto connect = &orbperix_##kind##_connect_device;                         \
    static inline const auto disconnect = &orbperix_##kind##_disconnect_device;                   \
    static inline const auto register_listener = &orbperix_##kind##_register_listener;            \
    static inline const auto unregister_listener = &orbperix_##kind##_unregister_listener;        \
    static inline const auto send_data = &orbperix_##kind##_send_data;                            \
    static inline const auto send_data_no_result = &orbperix_##kind##_send_data_no_result;        \
    static inline const auto send_binary_data = &orbperix_##kind##_send_binary_data;              \
    static inline const auto start_service = &orbperix_##kind##_start_device_service;             \
    static inline const auto stop_service = &orbperix_##kind##_stop_device_service;               \
    static inline const auto register_event_callback = &orbperix_##kind##_register_event_callback; \
    static inline const auto send_by_handler = &orbperix_##kind##_send_by_handler;                \
    static constexpr const char* kName = name

struct InputFns {
    ORBPERIX_HPP_PROVIDER_FNS(input, "orbperix::InputProvider");
};
struct SourceFns {
    ORBPERIX_HPP_PROVIDER_FNS(source, "orbperix::SourceProvider");
};
#undef ORBPERIX_HPP_PROVIDER_FNS

// What input and source providers share, written once over the kind's C functions.
template <typename Fns, typename Self>
class Provider {
public:
    Provider() noexcept = default;
    Provider(Provider&& other) noexcept
        : handle_(Take(other.handle_)), boxes_(std::exchange(other.boxes_, nullptr)) {}
    Provider& operator=(Provider&& other) noexcept {
        if (this != &other) {
            Release();
            handle_ = Take(other.handle_);
            boxes_ = std::exchange(other.boxes_, nullptr);
        }
        return *this;
    }
    Provider(const Provider&) = delete;
    Provider& operator=(const Provider&) = delete;
    ~Provider() { Release(); }

    explicit operator bool() const noexcept { return handle_ != 0; }
    uint64_t handle() const noexcept { return handle_; }

    Code Init() noexcept { return Code(Fns::init(handle_)); }
    Code DeInit() noexcept { return Code(Fns::deinit(handle_)); }
    Code ConnectDevice(const DeviceInfo& device) noexcept {
        return Code(Fns::connect(handle_, &device));
    }
    Code DisconnectDevice(const DeviceInfo& device) noexcept {
        return Code(Fns::disconnect(handle_, &device));
    }
    // Creates the peer's session and registers `listener` for it; the owner keeps it.
    Code RegisterListener(const DeviceInfo& device, Listener listener) noexcept {
        ListenerBox* box = new (std::nothrow) ListenerBox{std::move(listener), {}, nullptr};
        if (box == nullptr) {
            return Fail(kNoMemory, Fns::kName, "out of memory for a listener");
        }
        const orbperix_listener record = box->Record();
        const Code result(Fns::register_listener(handle_, &device, &record, box));
        if (!result.ok()) {
            delete box;  // refused: the library did not keep it
            return result;
        }
        box->next = boxes_;
        boxes_ = box;
        return result;
    }
    Code UnregisterListener(const DeviceInfo& device) noexcept {
        return Code(Fns::unregister_listener(handle_, &device));
    }
    Code SendData(std::string_view device_id, const Binary& data) noexcept {
        return Send(Fns::send_data, device_id, data);
    }
    Code SendDataNoResult(std::string_view device_id, const Binary& data) noexcept {
        return Send(Fns::send_data_no_result, device_id, data);
    }
    Code SendBinaryData(std::string_view device_id, const Binary& data) noexcept {
        return Send(Fns::send_binary_data, device_id, data);
    }
    Code StartDeviceService(const Service& service, void* reserved = nullptr) noexcept {
        return WithService(service, [&](const orbperix_service& s) {
            return Fns::start_service(handle_, &s, reserved);
        });
    }
    Code StopDeviceService(const Service& service) noexcept {
        return OnService(Fns::stop_service, service);
    }
    // `callback` goes to the engine unchanged.
    Code RegisterEventCallback(std::string_view device_id, uint32_t type, void* callback) noexcept {
        if (!Fits(device_id)) {
            return Fail(kInvalidArgument, Fns::kName,
                        "device id longer than the C interface takes");
        }
        return Code(Fns::register_event_callback(handle_, device_id.data(), LengthOf(device_id),
                                                 type, callback));
    }
    Code SendByHandler(void* a, void* b, void* c) noexcept {
        return Code(Fns::send_by_handler(handle_, a, b, c));
    }
    // kListenerThrew once when a listener of this owner threw since the last call, else kOk.
    Code ListenerError() noexcept {
        Code result = kOk;
        for (ListenerBox* box = boxes_; box != nullptr; box = box->next) {
            if (!box->guard.TakeFailure().ok()) {
                result = kListenerThrew;
            }
        }
        return result;
    }

    // A new provider of this kind; an empty owner when the library made none.
    static Self Create() noexcept {
        Self p;
        static_cast<Provider&>(p).handle_ = Fns::create();
        return p;
    }

protected:
    using ServiceFn = int (*)(uint64_t, const orbperix_service*);
    using StreamFn = int (*)(uint64_t, const orbperix_service*, const uint8_t*, uint32_t);

    Code OnService(ServiceFn fn, const Service& service) noexcept {
        return WithService(service, [&](const orbperix_service& s) { return fn(handle_, &s); });
    }
    Code WriteStream(StreamFn fn, const Service& service, Bytes data) noexcept {
        if (data.size > UINT32_MAX) {
            return Fail(kInvalidArgument, Fns::kName, "data longer than the C interface takes");
        }
        return WithService(service, [&](const orbperix_service& s) {
            return fn(handle_, &s, data.data, static_cast<uint32_t>(data.size));
        });
    }
    template <typename F>
    Code WithService(const Service& service, F&& f) noexcept {
        if (!Fits(service)) {
            return Fail(kInvalidArgument, Fns::kName,
                        "service text longer than the C interface takes");
        }
        const orbperix_service s = ToC(service);
        return Code(f(s));
    }
    uint64_t handle_ = 0;

private:
    template <typename F>
    Code Send(F fn, std::string_view device_id, const Binary& data) noexcept {
        if (!Fits(device_id) || !Fits(data)) {
            return Fail(kInvalidArgument, Fns::kName,
                        "text or data longer than the C interface takes");
        }
        const orbperix_binary binary = ToC(data);
        return Code(fn(handle_, device_id.data(), LengthOf(device_id), &binary));
    }
    // Forgets this kind's listeners (de-init), destroys the provider, waits for listener calls
    // under way, then frees the listeners.
    void Release() noexcept {
        const uint64_t handle = Take(handle_);
        if (handle != 0) {
            if (boxes_ != nullptr) {
                (void)Fns::deinit(handle);
            }
            (void)Fns::destroy(handle);
        }
        if (boxes_ != nullptr) {
            // A notification that found a listener before the de-init may not have reached
            // this layer yet; the library knows when it is done.
            (void)orbperix_wait_for_listeners(kListenerWaitMs);
        }
        for (ListenerBox* box = std::exchange(boxes_, nullptr); box != nullptr;) {
            ListenerBox* next = box->next;
            FreeUnlessRunning(box);
            box = next;
        }
    }

    ListenerBox* boxes_ = nullptr;
};

}  // namespace detail

// ---- Manager ----

// The engine's lifetime: Initialize loads and initialises it; the owner that initialised it
// finalises it when it goes. Move-only.
class Manager {
public:
    Manager() noexcept = default;
    Manager(Manager&& other) noexcept : owns_(std::exchange(other.owns_, false)) {}
    Manager& operator=(Manager&& other) noexcept {
        if (this != &other) {
            Finalize();
            owns_ = std::exchange(other.owns_, false);
        }
        return *this;
    }
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;
    ~Manager() { Finalize(); }

    // 0; -4 already initialised; -13 engine or getter missing; the engine's result.
    Code Initialize(std::string_view init_text,
                    tagPERIXLogFuncGroup* log_funcs = nullptr) noexcept {
        const Code result = WithText(init_text, [log_funcs](const char* text) {
            return orbperix_initialize(log_funcs, text);
        });
        owns_ = owns_ || result.ok();
        return result;
    }
    // Where the next Initialize loads the engine from: its file, or a folder holding it (UTF-8;
    // empty: the default, beside the executable). 0; -4 while initialised. See
    // orbperix_set_engine_path for the environment variable with the same effect.
    static Code SetEnginePath(std::string_view path) noexcept {
        return WithText(path, [](const char* text) { return orbperix_set_engine_path(text); });
    }
    static bool IsInitialized() noexcept { return orbperix_is_initialized() == 1; }

    // The developer log (see orbperix_set_log_output): lines at `level` (ORBPERIX_C_LOG_*) or
    // above go to "stderr", a file, or nowhere (empty).
    static Code SetLogOutput(std::string_view destination,
                             int level = ORBPERIX_C_LOG_INFO) noexcept {
        return WithText(destination,
                        [level](const char* text) { return orbperix_set_log_output(text, level); });
    }
    // Lines at `level` or above also go to `fn` (empty: none), called on whichever thread logs,
    // with no lock of the library held; a callable that throws loses that line only. The
    // previous callable is destroyed once no call of it runs on another thread (kOk); after
    // kNotAvailable one still ran after 2 s and it is kept for good. Call it from one thread at
    // a time, as Initialize.
    using LogFunction = std::function<void(int level, std::string_view scope,
                                           std::string_view text)>;
    static Code SetLogCallback(int level, LogFunction fn) noexcept;

    // Finalises the engine when this owner initialised it.
    void Finalize() noexcept {
        if (std::exchange(owns_, false)) {
            orbperix_finalize();
        }
    }
    explicit operator bool() const noexcept { return owns_; }

private:
    // Calls `fn` with a NUL-terminated copy of `text`.
    template <typename F>
    static Code WithText(std::string_view text, F&& fn) noexcept {
        char* copy = new (std::nothrow) char[text.size() + 1];
        if (copy == nullptr) {
            return detail::Fail(kNoMemory, "orbperix::Manager", "out of memory for a text");
        }
        if (!text.empty()) {  // an empty view may hold a null pointer
            std::memcpy(copy, text.data(), text.size());
        }
        copy[text.size()] = '\0';
        const Code result(fn(copy));
        delete[] copy;
        return result;
    }
    bool owns_ = false;
};

namespace detail {

struct LogBox {
    Manager::LogFunction fn;
};

inline void LogTrampoline(void* user_data, int level, const char* scope,
                          const char* text) noexcept {
    const LogBox* box = static_cast<const LogBox*>(user_data);
#if ORBPERIX_HPP_EXCEPTIONS
    try {
        box->fn(level, scope, text);
    } catch (...) {
        // The line is lost to this callable; nothing else changes.
    }
#else
    box->fn(level, scope, text);
#endif
}

// The callable the library calls now (owned by this header's code in the host's module).
inline std::atomic<LogBox*>& CurrentLogBox() noexcept {
    static std::atomic<LogBox*> box{nullptr};
    return box;
}

}  // namespace detail

inline Code Manager::SetLogCallback(int level, LogFunction fn) noexcept {
    detail::LogBox* next = nullptr;
    if (fn) {
#if ORBPERIX_HPP_EXCEPTIONS
        try {
            next = new detail::LogBox{std::move(fn)};
        } catch (...) {
            return detail::Fail(kNoMemory, "orbperix::Manager", "out of memory for a callable");
        }
#else
        next = new (std::nothrow) detail::LogBox{std::move(fn)};
        if (next == nullptr) {
            return detail::Fail(kNoMemory, "orbperix::Manager", "out of memory for a callable");
        }
#endif
    }
    const Code result(orbperix_set_log_callback(
        level, next != nullptr ? &detail::LogTrampoline : nullptr, next));
    if (result != kOk && result != kNotAvailable) {
        delete next;  // refused before it was published
        return result;
    }
    detail::LogBox* previous = detail::CurrentLogBox().exchange(next);
    if (result == kOk) {
        delete previous;  // no call of it is under way any more
    }
    return result;
}

// ---- Providers ----

class InputProvider : public detail::Provider<detail::InputFns, InputProvider> {
public:
    Code OpenButton(const Service& service, void* reserved = nullptr) noexcept {
        return WithService(service, [&](const orbperix_service& s) {
            return orbperix_input_open_button(handle_, &s, reserved);
        });
    }
    Code CloseButton(const Service& service) noexcept {
        return WithService(service, [&](const orbperix_service& s) {
            return orbperix_input_close_button(handle_, &s, nullptr, nullptr);
        });
    }
    Code PostRemoteCtrlEvent(const Service& service, const RemoteEvent& event) noexcept {
        return WithService(service, [&](const orbperix_service& s) {
            return orbperix_input_post_remote_ctrl_event(handle_, &s, &event);
        });
    }
    Code ButtonWriteStreamBuffer(const Service& service, Bytes data) noexcept {
        return WriteStream(&orbperix_input_button_write_stream_buffer, service, data);
    }
};

class SourceProvider : public detail::Provider<detail::SourceFns, SourceProvider> {
public:
    Code OpenAudio(const Service& service, const AudioParam& param) noexcept {
        return WithService(service, [&](const orbperix_service& s) {
            return orbperix_source_open_audio(handle_, &s, &param);
        });
    }
    Code CloseAudio(const Service& service) noexcept {
        return OnService(&orbperix_source_close_audio, service);
    }
    // Streaming path: 0 (the library logs failures).
    Code AudioWriteStreamBuffer(const Service& service, Bytes data) noexcept {
        return WriteStream(&orbperix_source_audio_write_stream_buffer, service, data);
    }
    Code OpenPartialRefresh(const Service& service) noexcept {
        return OnService(&orbperix_source_open_partial_refresh, service);
    }
    Code ClosePartialRefresh(const Service& service) noexcept {
        return OnService(&orbperix_source_close_partial_refresh, service);
    }
    Code PartialRefreshWriteStreamBuffer(const Service& service, Bytes data) noexcept {
        if (data.size > detail::kMaxText) {
            return detail::Fail(kInvalidArgument, "orbperix::SourceProvider",
                                "data longer than the C interface takes");
        }
        return WithService(service, [&](const orbperix_service& s) {
            return orbperix_source_partial_refresh_write_stream_buffer(
                handle_, &s, data.data, static_cast<int32_t>(data.size));
        });
    }
    Code AudioPassThrough(void* a, void* b) noexcept {
        return Code(orbperix_source_audio_pass_through(handle_, a, b));
    }
};

// REQUIRES: calls on one sink serialised by the host.
class SinkProvider {
public:
    SinkProvider() noexcept = default;
    SinkProvider(SinkProvider&& other) noexcept : handle_(detail::Take(other.handle_)) {}
    SinkProvider& operator=(SinkProvider&& other) noexcept {
        if (this != &other) {
            Release();
            handle_ = detail::Take(other.handle_);
        }
        return *this;
    }
    SinkProvider(const SinkProvider&) = delete;
    SinkProvider& operator=(const SinkProvider&) = delete;
    ~SinkProvider() { Release(); }

    static SinkProvider Create() noexcept {
        SinkProvider p;
        p.handle_ = orbperix_create_sink_provider();
        return p;
    }
    explicit operator bool() const noexcept { return handle_ != 0; }
    uint64_t handle() const noexcept { return handle_; }

    Code Init() noexcept { return Code(orbperix_sink_init(handle_)); }
    Code DeInit() noexcept { return Code(orbperix_sink_deinit(handle_)); }
    Code ConnectDevice(const DeviceInfo& device) noexcept {
        return Code(orbperix_sink_connect_device(handle_, &device));
    }
    Code CreateMeshProvider(const DeviceInfo& device) noexcept {
        return Code(orbperix_sink_create_mesh_provider(handle_, &device));
    }
    Code DisconnectDevice(const DeviceInfo& device, void* arg = nullptr) noexcept {
        return Code(orbperix_sink_disconnect_device(handle_, &device, arg));
    }
    Code GetConnectionStatus() noexcept {
        return Code(orbperix_sink_get_connection_status(handle_));
    }
    Code RegisterEngineCallback(uint32_t type, void* callback) noexcept {
        return Code(orbperix_sink_register_engine_callback(handle_, type, callback));
    }
    Code SendByHandler(void* a, void* b, void* c) noexcept {
        return Code(orbperix_sink_send_by_handler(handle_, a, b, c));
    }

private:
    void Release() noexcept {
        if (handle_ != 0) {
            (void)orbperix_destroy_sink_provider(detail::Take(handle_));
        }
    }
    uint64_t handle_ = 0;
};

// ---- Cast bridge ----

// Initialises the casting engine; `on_service_died` (may be empty) is kept for the rest of the
// process, as the casting engine keeps its listener. True on success. Call once, from one
// thread.
inline bool InitCastEngine(std::function<void()> on_service_died) noexcept {
    struct Died {
        std::function<void()> fn;
        detail::Guard guard;
        Died* earlier = nullptr;
        static void Call(void* u) noexcept {
            Died& d = *static_cast<Died*>(u);
            d.guard.Run("orbperix::InitCastEngine", [&] { d.fn(); });
        }
    };
    if (!on_service_died) {
        return orbperix_init_cast_engine(nullptr, nullptr) == 1;
    }
    // Never freed: the casting engine may call it until the process ends. Kept in a list of
    // static storage, so that leak checkers see it as reachable.
    static Died* kept = nullptr;
    Died* died = new (std::nothrow) Died{std::move(on_service_died), {}, kept};
    if (died == nullptr) {
        (void)detail::Fail(kNoMemory, "orbperix::InitCastEngine", "out of memory for the listener");
        return false;
    }
    kept = died;
    return orbperix_init_cast_engine(&Died::Call, died) == 1;
}

struct CastLocalDevice {
    std::string_view device_id;
    std::string_view device_name;
    uint32_t device_type = 0;
    std::string_view ip_address;
};

// The casting engine's local device; its texts are copied. 0; kInvalidArgument.
inline Code SetCastEngineLocalDevice(const CastLocalDevice& device) noexcept {
    const size_t total = device.device_id.size() + device.device_name.size() +
                         device.ip_address.size() + 3;
    char* buffer = new (std::nothrow) char[total];
    if (buffer == nullptr) {
        return detail::Fail(kNoMemory, "orbperix::SetCastEngineLocalDevice", "out of memory");
    }
    char* next = buffer;
    auto terminated = [&next](std::string_view text) {
        char* start = next;
        if (!text.empty()) {  // an empty view may hold a null pointer
            std::memcpy(next, text.data(), text.size());
        }
        next[text.size()] = '\0';
        next += text.size() + 1;
        return start;
    };
    orbperix_cast_local_device c{};
    c.device_id = terminated(device.device_id);
    c.device_name = terminated(device.device_name);
    c.device_type = device.device_type;
    c.ip_address = terminated(device.ip_address);
    const Code result(orbperix_set_cast_engine_local_device(&c));
    delete[] buffer;
    return result;
}

// A cast session: released by the casting engine's rules and destroyed when the owner goes.
class CastSession {
public:
    using EventFn = std::function<void(int event_code, std::string_view detail)>;

    CastSession() noexcept = default;
    CastSession(CastSession&& other) noexcept
        : handle_(detail::Take(other.handle_)),
          listener_(std::exchange(other.listener_, nullptr)),
          retired_(std::exchange(other.retired_, nullptr)) {}
    CastSession& operator=(CastSession&& other) noexcept {
        if (this != &other) {
            Destroy();
            handle_ = detail::Take(other.handle_);
            listener_ = std::exchange(other.listener_, nullptr);
            retired_ = std::exchange(other.retired_, nullptr);
        }
        return *this;
    }
    CastSession(const CastSession&) = delete;
    CastSession& operator=(const CastSession&) = delete;
    ~CastSession() { Destroy(); }

    // A session from the casting engine; empty when it made none.
    static CastSession Create(const CastSessionProperty& property) noexcept {
        CastSession s;
        s.handle_ = orbperix_create_cast_session(&property);
        return s;
    }
    explicit operator bool() const noexcept { return handle_ != 0; }

    // Replaces the session's event listener (the owner keeps the callable).
    Code RegisterListener(EventFn on_event) noexcept {
        Box* box = new (std::nothrow) Box{std::move(on_event), {}};
        if (box == nullptr) {
            return detail::Fail(kNoMemory, "orbperix::CastSession", "out of memory for a listener");
        }
        const Code result(orbperix_cast_session_register_listener(handle_, &Box::Call, box));
        if (!result.ok()) {
            delete box;
            return result;
        }
        Box* previous = std::exchange(listener_, box);
        retired_ = Retire(previous);
        return result;
    }
    Code UnregisterListener() noexcept {
        return Code(orbperix_cast_session_unregister_listener(handle_));
    }
    Code AddDevice(std::string_view device_id) noexcept {
        return WithId(&orbperix_cast_session_add_device, device_id);
    }
    Code RemoveDevice(std::string_view device_id) noexcept {
        return WithId(&orbperix_cast_session_remove_device, device_id);
    }
    Code StartAuth(std::string_view device_id) noexcept {
        return WithId(&orbperix_cast_session_start_auth, device_id);
    }
    Code Play(std::string_view device_id) noexcept {
        return WithId(&orbperix_cast_session_play, device_id);
    }
    // Copies up to capacity - 1 bytes of the session id into `buffer` (NUL-terminated);
    // *full_len receives the full length.
    Code GetSessionId(char* buffer, uint32_t capacity, uint32_t* full_len) noexcept {
        return Code(orbperix_cast_session_get_session_id(handle_, buffer, capacity, full_len));
    }
    Code SetSessionProperty(const CastSessionProperty& property) noexcept {
        return Code(orbperix_cast_session_set_property(handle_, &property));
    }
    // The session's release operation (the handle stays valid until the owner goes).
    Code Release() noexcept { return Code(orbperix_cast_session_release(handle_)); }
    // kListenerThrew once when the event listener threw since the last call, else kOk.
    Code ListenerError() noexcept {
        return listener_ != nullptr ? listener_->guard.TakeFailure() : kOk;
    }

private:
    struct Box {
        EventFn fn;
        detail::Guard guard;
        Box* previous = nullptr;
        static void Call(void* u, int code, const char* detail, uint32_t len) noexcept {
            Box& box = *static_cast<Box*>(u);
            box.guard.Run("orbperix::CastSession::on_event",
                          [&] { box.fn(code, detail::TextOf(detail, len)); });
        }
    };
    // A replaced listener may still be under way: it is freed with the owner.
    Box* Retire(Box* box) noexcept {
        if (box == nullptr) {
            return retired_;
        }
        box->previous = retired_;
        return box;
    }
    template <typename F>
    Code WithId(F fn, std::string_view device_id) noexcept {
        if (!detail::Fits(device_id)) {
            return detail::Fail(kInvalidArgument, "orbperix::CastSession",
                                "device id longer than the C interface takes");
        }
        return Code(fn(handle_, device_id.data(), detail::LengthOf(device_id)));
    }
    void Destroy() noexcept {
        if (handle_ != 0) {
            (void)orbperix_cast_session_unregister_listener(handle_);
            (void)orbperix_destroy_cast_session(detail::Take(handle_));
        }
        if (Box* box = std::exchange(listener_, nullptr)) {
            detail::FreeUnlessRunning(box);
        }
        for (Box* box = std::exchange(retired_, nullptr); box != nullptr;) {
            Box* next = box->previous;
            detail::FreeUnlessRunning(box);
            box = next;
        }
    }

    uint64_t handle_ = 0;
    Box* listener_ = nullptr;
    Box* retired_ = nullptr;
};

}  // namespace orbperix

#undef ORBPERIX_HPP_EXCEPTIONS

#endif  // ORBPERIX_ORBPERIX_HPP_
