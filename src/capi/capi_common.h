// What every function of the C interface shares: its log scope, the handle lookup with its one
// error line, the conversion of C records and texts into the C++ operation's arguments, and the
// boundary that keeps exceptions inside the library.
//
// Conversions copy: a C host's texts become std::string, its records become the C++ records
// (the layouts are checked in capi_layout.cpp); the posting path reads texts as views for the
// length of the call instead. Nothing here keeps a pointer the host gave.
#ifndef ORBPERIX_SRC_CAPI_CAPI_COMMON_H_
#define ORBPERIX_SRC_CAPI_CAPI_COMMON_H_

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "capi/handle_table.h"
#include "log/log.h"
#include "orbperix/orbperix_c.h"
#include "orbperix/cast.h"
#include "orbperix/providers.h"

// The log scope of the C function `name`.
#define ORBPERIX_C_SCOPE(name) "orbperix_c::" #name

namespace OrbPerix {
namespace capi {

template <typename T>
struct KindOf;
template <>
struct KindOf<IInputProvider> {
    static constexpr HandleKind value = HandleKind::kInput;
};
template <>
struct KindOf<ISourceProvider> {
    static constexpr HandleKind value = HandleKind::kSource;
};
template <>
struct KindOf<ISinkProvider> {
    static constexpr HandleKind value = HandleKind::kSink;
};
template <>
struct KindOf<::ICastSession> {
    static constexpr HandleKind value = HandleKind::kCastSession;
};

// A wrapper failure: logs its one line and hands back `code`.
inline int Fail(const char* scope, int code, const char* message) noexcept {
    log::Trace(LOG_MESSAGE_ERROR, scope, message);
    return code;
}

// Runs `body(object)` on the live object of `handle`. A dead handle gives ORBPERIX_C_BAD_HANDLE
// and one error line; an exception (only allocation can fail here) becomes -3 or -13 with one
// line. The table's Use keeps the object alive, and its destroy waiting, for the whole call.
template <typename T, typename Body>
int WithObject(uint64_t handle, const char* scope, Body&& body) noexcept {
    try {
        const HandleTable::Use use = HandleTable::Instance().Acquire(handle, KindOf<T>::value);
        if (!use) {
            log::Trace(LOG_MESSAGE_ERROR, scope, "invalid handle ", handle);
            return ORBPERIX_C_BAD_HANDLE;
        }
        return body(*static_cast<T*>(use.Object()));
    } catch (const std::bad_alloc&) {
        return Fail(scope, ORBPERIX_C_NO_MEMORY, "out of memory");
    } catch (...) {
        return Fail(scope, -13, "unexpected exception");
    }
}

// Text in: (pointer, length in bytes or -1 for NUL-terminated). False for a negative length
// other than -1, or a null pointer with a non-zero length. A null pointer with length 0 or -1
// reads as empty (a view of a static "", never a null pointer: the engine gets it as is). The
// view points into the host's text, valid for the call; with an explicit length it need not
// be NUL-terminated (the engine's identity records carry their lengths).
inline bool TextView(const char* text, int32_t length, std::string_view* out) noexcept {
    if (length < ORBPERIX_C_NUL_TERMINATED) {
        return false;
    }
    if (text == nullptr) {
        *out = std::string_view("", 0);
        return length <= 0;
    }
    if (length == ORBPERIX_C_NUL_TERMINATED) {
        *out = std::string_view(text);
    } else {
        *out = std::string_view(text, static_cast<size_t>(length));
    }
    return true;
}

// A text for the engine, read as TextView does, and NUL-terminated at its size as every text
// the library hands the engine is: the engine's records carry the length, but an engine that
// reads to the NUL must not run past a host's buffer. A NUL-terminated text is used in place;
// one given with its length is copied onto the stack. Nothing here owns memory, so the posting
// path that uses it builds no object with a destructor.
class EngineText {
public:
    enum Outcome { kRead, kBad, kTooLong };  // kTooLong: the caller copies it to the heap
    static constexpr size_t kInPlace = 260;  // room for any peer id the engine names

    EngineText() noexcept = default;
    EngineText(const EngineText&) = delete;
    EngineText& operator=(const EngineText&) = delete;

    Outcome Read(const char* text, int32_t length) noexcept {
        if (!TextView(text, length, &view_)) {
            return kBad;
        }
        if (text == nullptr || length == ORBPERIX_C_NUL_TERMINATED) {
            return kRead;  // "" or the host's C string
        }
        if (view_.size() >= sizeof(buffer_)) {
            return kTooLong;
        }
        std::memcpy(buffer_, view_.data(), view_.size());
        buffer_[view_.size()] = '\0';
        view_ = std::string_view(buffer_, view_.size());
        return kRead;
    }
    std::string_view View() const noexcept { return view_; }

private:
    std::string_view view_;
    char buffer_[kInPlace];
};

// TextView copied into a string. May throw std::bad_alloc.
inline bool TextOf(const char* text, int32_t length, std::string* out) {
    std::string_view view;
    if (!TextView(text, length, &view)) {
        return false;
    }
    out->assign(view.data(), view.size());
    return true;
}

// A device id argument of an operation that takes `const std::string*`: a null text stays a
// null pointer (the C++ operation reports it); `storage` holds the copy.
inline bool DeviceIdOf(const char* text, int32_t length, std::string* storage,
                       const std::string** out) {
    if (text == nullptr && length != 0 && length != ORBPERIX_C_NUL_TERMINATED) {
        return false;
    }
    if (text == nullptr) {
        *out = nullptr;
        return true;
    }
    if (!TextOf(text, length, storage)) {
        return false;
    }
    *out = storage;
    return true;
}

// A service record: null stays null; the texts are copied into `storage`.
inline bool ServiceOf(const orbperix_service* service, ServiceInfo* storage, ServiceInfo** out) {
    if (service == nullptr) {
        *out = nullptr;
        return true;
    }
    if (!TextOf(service->device_id, service->device_id_len, &storage->deviceId) ||
        !TextOf(service->service_id, service->service_id_len, &storage->serviceId)) {
        return false;
    }
    storage->serviceType = service->service_type;
    *out = storage;
    return true;
}

// A device record: null stays null; otherwise a copy (same layout, checked at compile time).
inline PERIXInfo* DeviceInfoOf(const orbperix_device_info* device, PERIXInfo* storage) noexcept {
    if (device == nullptr) {
        return nullptr;
    }
    std::memcpy(storage, device, sizeof(PERIXInfo));
    return storage;
}

// Binary data: null stays null. The bytes are not copied: the library copies them itself
// before the engine sees them, and never writes them.
inline BinaryData* BinaryOf(const orbperix_binary* data, BinaryData* storage) noexcept {
    if (data == nullptr) {
        return nullptr;
    }
    *storage = BinaryData{data->word0, data->word1, const_cast<uint8_t*>(data->data), data->len};
    return storage;
}

constexpr const char* kBadText = "invalid text argument (null pointer or negative length)";

}  // namespace capi
}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_CAPI_CAPI_COMMON_H_
