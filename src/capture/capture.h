// Capture of everything that crosses the boundary between the library and the engine (and the
// calls of the host's listeners) into a pcapng file, for a person to open in Wireshark or in
// orbperix-inspect.
//
// Off by default. Switched on by ORBPERIX_CAPTURE=<file> at Initialize, or by Start (the C
// interface's orbperix_capture_start). While off, a hook costs one relaxed load of a flag and
// a branch that is not taken. While on, the thread that makes a call or raises a notification
// builds the record and offers it to a bounded lock-free queue; one writer thread writes the
// queue to the file. A full queue drops the record and counts it: no host or engine thread
// ever waits for the file. Stop, Finalize and process exit flush what was queued and close
// the file with a statistics block (records written and dropped).
//
// Threads: On, Record, Notification, Listener and PostScope from any thread. Start, Stop and
// the Initialize/Finalize hooks from host threads (serialised inside).
#ifndef ORBPERIX_SRC_CAPTURE_CAPTURE_H_
#define ORBPERIX_SRC_CAPTURE_CAPTURE_H_

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "capture/record_format.h"

namespace OrbPerix {
namespace capture {

// Option flag: also record the text a user typed (text-input and message events). Without it
// those bytes are written as zeros and the record says so.
constexpr uint32_t kOptionUserText = 0x1;

struct Options {
    uint32_t flags = 0;
    uint32_t payloadCap = 64;       // audio, refresh and binary data: bytes kept per record
    uint32_t queueRecords = 4096;   // capacity of the queue (rounded up to a power of two)
};

// Result codes of Start and Stop (the library's usual values).
constexpr int kOk = 0;
constexpr int kInvalidArgument = -2;
constexpr int kNoMemory = -3;
constexpr int kWrongState = -4;
constexpr int kCannotWrite = -13;

namespace detail {
extern std::atomic<bool> g_active;
}  // namespace detail

// Whether records are being taken now: the one check on every hook's hot path.
inline bool On() noexcept { return detail::g_active.load(std::memory_order_relaxed); }

// Starts a capture into `path` (UTF-8). An unwritable path gives one error line and
// kCannotWrite; a capture already running gives kWrongState. Nothing else changes either way.
int Start(const char* path, const Options& options) noexcept;
// Flushes and closes the running capture; kWrongState when none runs (or it already ended
// after a write error).
int Stop() noexcept;
// Initialize: starts a capture named by ORBPERIX_CAPTURE, unless one runs already. Only the
// first Initialize of the process does (a later one would overwrite the file).
// ORBPERIX_CAPTURE_TEXT=1 adds kOptionUserText.
void StartFromEnvironment() noexcept;
// Records written and dropped by the running (or last) capture so far.
uint64_t Written() noexcept;
uint64_t Dropped() noexcept;

// The monotonic clock in ns.
uint64_t Now() noexcept;

// One record being built on the calling thread. Texts and payload are referenced, not copied,
// until Submit; they must stay valid until then.
class Record {
public:
    Record(Direction direction, const char* name, PayloadKind payloadKind) noexcept;
    void Handle(const void* handle) noexcept;
    void Device(const char* text, uint32_t length) noexcept;
    void Service(const char* text, uint32_t length) noexcept;
    void Aux(uint32_t value) noexcept { aux_ = value; }
    void Payload(const void* data, uint32_t length) noexcept;
    void Result(int32_t result) noexcept;
    void ListenerThrew() noexcept { flags_ |= kFlagListenerThrew; }
    void SincePostFrom(uint64_t postTime) noexcept;
    PayloadKind Kind() const noexcept { return kind_; }
    // Builds the record and offers it to the queue (dropped and counted when full).
    void Submit(uint64_t start, uint64_t end) noexcept;

private:
    Direction direction_;
    uint8_t flags_ = 0;
    PayloadKind kind_;
    const char* name_;
    bool handleSet_ = false;
    uint64_t handle_ = 0;
    int32_t result_ = 0;
    uint32_t aux_ = 0;
    uint64_t postTime_ = 0;
    const char* device_ = nullptr;
    uint32_t deviceLength_ = 0;
    const char* service_ = nullptr;
    uint32_t serviceLength_ = 0;
    const uint8_t* payload_ = nullptr;
    uint32_t payloadLength_ = 0;
};

// A notification from the engine, recorded when it arrives. Texts and payload are read only
// within the limits the library itself applies to engine records.
struct NotificationFacts {
    const char* name;
    const void* handle;
    const char* deviceId;
    uint32_t deviceIdLength;
    const char* serviceId;
    uint32_t serviceIdLength;
    uint32_t aux;
    PayloadKind payloadKind;
    const void* payload;
    uint32_t payloadLength;
};
void Notification(const NotificationFacts& facts) noexcept;

// A host listener call that began at `start` and has returned (or thrown).
void Listener(const char* event, uint64_t start, bool threw) noexcept;

// Marks the calling thread as posting a remote-control event for its lifetime: the button
// write it makes is recorded as a remote-control packet with its time since the post.
class PostScope {
public:
    PostScope() noexcept {
        if (On()) {
            Begin();
        }
    }
    ~PostScope() {
        if (marked_) {
            End();
        }
    }
    PostScope(const PostScope&) = delete;
    PostScope& operator=(const PostScope&) = delete;

private:
    void Begin() noexcept;
    void End() noexcept;
    bool marked_ = false;
};
// The time of the post in progress on this thread, or 0.
uint64_t PostTime() noexcept;

}  // namespace capture
}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_CAPTURE_CAPTURE_H_
