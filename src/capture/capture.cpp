#include "capture/capture.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <thread>

#include "capture/pcapng.h"
#include "capture/record_ring.h"
#include "log/log.h"
#include "platform/platform.h"
#include "util/no_destructor.h"
#include "wire/coding.h"

#ifndef ORBPERIX_VERSION_STRING
#define ORBPERIX_VERSION_STRING "unknown"
#endif

namespace OrbPerix {
namespace capture {

namespace detail {
// Constant-initialised: valid before any constructor runs and after every destructor.
std::atomic<bool> g_active{false};
}  // namespace detail

namespace {

constexpr const char* kScope = "OrbPerix::Capture";
constexpr size_t kWriteBufferSize = 64 * 1024;
constexpr uint32_t kIdleSleepMs = 2;

// The one capture of the process. Never destroyed: exit handlers and late engine threads may
// still touch it while the process ends.
struct Session {
    std::mutex control;  // Start/Stop; never taken by a thread that records
    RecordRing ring;
    std::FILE* file = nullptr;
    std::string path;
    std::thread writer;
    std::atomic<bool> stopWriter{false};
    std::atomic<bool> writerInFile{false};  // the writer is inside a file call
    std::atomic<bool> failed{false};        // a write failed; the capture has ended
    std::atomic<uint32_t> producers{0};     // threads inside Submit
    std::atomic<uint32_t> flags{0};
    std::atomic<uint32_t> payloadCap{0};
    std::atomic<uint64_t> written{0};
    std::atomic<uint64_t> lostAfterFailure{0};
    uint64_t startTime = 0;
    bool exitHookRegistered = false;
    uint8_t buffer[kWriteBufferSize];
    size_t buffered = 0;
    uint64_t bufferedRecords = 0;
};

Session& TheSession() {
    static NoDestructor<Session> session;
    return *session;
}

// The counter's frequency, read at each Start (the same value every time).
std::atomic<int64_t> g_frequency{0};
// ORBPERIX_CAPTURE is honoured at the first Initialize only: a later one would overwrite the
// capture of the earlier session. Host thread (Initialize) only.
bool g_environmentUsed = false;

// Writes the buffered blocks. False (and the capture ended, with one line) on a write error.
bool FlushBuffer(Session& s) noexcept {
    if (s.buffered == 0) {
        return true;
    }
    s.writerInFile.store(true, std::memory_order_seq_cst);
    const bool ok = std::fwrite(s.buffer, 1, s.buffered, s.file) == s.buffered &&
                    std::fflush(s.file) == 0;
    s.writerInFile.store(false, std::memory_order_seq_cst);
    if (!ok) {
        detail::g_active.store(false, std::memory_order_seq_cst);
        s.failed.store(true, std::memory_order_seq_cst);
        s.lostAfterFailure.fetch_add(s.bufferedRecords, std::memory_order_relaxed);
        log::Trace(LOG_MESSAGE_ERROR, kScope, "Capture stopped: write error on ", s.path.c_str());
    } else {
        s.written.fetch_add(s.bufferedRecords, std::memory_order_relaxed);
    }
    s.buffered = 0;
    s.bufferedRecords = 0;
    return ok;
}

bool Append(Session& s, const uint8_t* block, size_t size) noexcept {
    if (size == 0) {
        return false;
    }
    if (kWriteBufferSize - s.buffered < size && !FlushBuffer(s)) {
        return false;
    }
    std::memcpy(s.buffer + s.buffered, block, size);
    s.buffered += size;
    return true;
}

// Moves every queued record into the file; returns how many were taken from the queue.
size_t Drain(Session& s) noexcept {
    size_t taken = 0;
    uint8_t block[kMaxRecordSize + 64];
    while (const RecordRing::Cell* cell = s.ring.Front()) {
        if (s.failed.load(std::memory_order_relaxed)) {
            s.lostAfterFailure.fetch_add(1, std::memory_order_relaxed);
        } else {
            const size_t size = BuildEnhancedPacket(block, sizeof(block), cell->time,
                                                    cell->bytes, cell->length);
            if (Append(s, block, size)) {
                ++s.bufferedRecords;
            }
        }
        s.ring.PopFront();
        ++taken;
    }
    if (!s.failed.load(std::memory_order_relaxed)) {
        FlushBuffer(s);
    }
    return taken;
}

void WriterLoop(Session* s) noexcept {
    while (!s->stopWriter.load(std::memory_order_acquire)) {
        if (Drain(*s) == 0) {
            platform::SleepMilliseconds(kIdleSleepMs);
        }
    }
    Drain(*s);
}

bool WriteHeader(Session& s) noexcept {
    uint8_t block[512];
    const char* application = "OrbPerixProvider " ORBPERIX_VERSION_STRING;
    return Append(s, block, BuildSectionHeader(block, sizeof(block), application)) &&
           Append(s, block, BuildInterfaceDescription(block, sizeof(block), kLinkType,
                                                      "orbperix")) &&
           FlushBuffer(s);
}

// Closes the file with the statistics block. REQUIRES: no writer thread runs.
void CloseFile(Session& s) noexcept {
    const uint64_t dropped =
        s.ring.Dropped() + s.lostAfterFailure.load(std::memory_order_relaxed);
    if (!s.failed.load(std::memory_order_relaxed)) {
        uint8_t block[256];
        if (Append(s, block,
                   BuildInterfaceStatistics(block, sizeof(block), s.startTime, Now(),
                                            s.written.load(std::memory_order_relaxed) +
                                                s.bufferedRecords,
                                            dropped))) {
            FlushBuffer(s);
        }
    }
    if (std::fclose(s.file) != 0 && !s.failed.load(std::memory_order_relaxed)) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "Capture stopped: write error on ", s.path.c_str());
    }
    s.file = nullptr;
}

// Waits for the threads inside Submit to leave (the flag is already off, so none enters).
void WaitForProducers(Session& s) noexcept {
    while (s.producers.load(std::memory_order_seq_cst) != 0) {
        std::this_thread::yield();
    }
}

// Ends the running capture. REQUIRES: s.control held, s.file open.
void StopLocked(Session& s) noexcept {
    detail::g_active.store(false, std::memory_order_seq_cst);
    WaitForProducers(s);
    s.stopWriter.store(true, std::memory_order_release);
    if (s.writer.joinable()) {
        s.writer.join();
    }
    CloseFile(s);
    s.ring.Free();
}

// Process exit. Where threads still run (and exit handlers may join them) this is a plain
// Stop. Under the Windows loader lock the writer thread is gone: the rest of the queue is
// written from here, unless the writer died inside a file call (its stream lock may be held),
// and no thread is joined.
void CloseAtExit() {
    Session& s = TheSession();
    if (!platform::ProcessIsExiting()) {
        Stop();
        return;
    }
    detail::g_active.store(false, std::memory_order_seq_cst);
    if (s.file == nullptr || s.writerInFile.load(std::memory_order_seq_cst)) {
        return;
    }
    Drain(s);
    CloseFile(s);
}

}  // namespace

uint64_t Now() noexcept {
    const int64_t counter = platform::PerformanceCounter();
    const int64_t frequency = g_frequency.load(std::memory_order_relaxed);
    if (frequency == 1000000000 || frequency <= 0) {
        return static_cast<uint64_t>(counter);
    }
    return static_cast<uint64_t>(counter / frequency) * 1000000000u +
           static_cast<uint64_t>(counter % frequency) * 1000000000u /
               static_cast<uint64_t>(frequency);
}

int Start(const char* path, const Options& options) noexcept {
    if (path == nullptr || path[0] == '\0') {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "Capture not started: no file name");
        return kInvalidArgument;
    }
    Session& s = TheSession();
    std::lock_guard<std::mutex> lock(s.control);
    if (s.file != nullptr) {
        if (!s.failed.load(std::memory_order_relaxed)) {
            log::Trace(LOG_MESSAGE_ERROR, kScope, "Capture not started: a capture is running");
            return kWrongState;
        }
        StopLocked(s);  // the last capture ended on a write error: clear it away
    }
    g_frequency.store(platform::PerformanceFrequency(), std::memory_order_relaxed);
    std::string reason;
    std::FILE* file = platform::OpenFileForWriting(path, &reason);
    if (file == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "Capture not started: cannot write ", path, ": ",
                   reason.c_str());
        return kCannotWrite;
    }
    try {
        s.path = path;
    } catch (...) {
        std::fclose(file);
        return kNoMemory;
    }
    if (!s.ring.Allocate(options.queueRecords == 0 ? 1 : options.queueRecords)) {
        std::fclose(file);
        log::Trace(LOG_MESSAGE_ERROR, kScope, "Capture not started: no memory for the queue");
        return kNoMemory;
    }
    s.file = file;
    s.failed.store(false, std::memory_order_relaxed);
    s.written.store(0, std::memory_order_relaxed);
    s.lostAfterFailure.store(0, std::memory_order_relaxed);
    s.buffered = 0;
    s.bufferedRecords = 0;
    s.flags.store(options.flags, std::memory_order_relaxed);
    s.payloadCap.store(options.payloadCap < kMaxCapturedPayload
                           ? options.payloadCap
                           : static_cast<uint32_t>(kMaxCapturedPayload),
                       std::memory_order_relaxed);
    s.startTime = Now();
    if (!WriteHeader(s)) {
        CloseFile(s);
        s.ring.Free();
        return kCannotWrite;
    }
    s.stopWriter.store(false, std::memory_order_relaxed);
    try {
        s.writer = std::thread(&WriterLoop, &s);
    } catch (...) {
        CloseFile(s);
        s.ring.Free();
        log::Trace(LOG_MESSAGE_ERROR, kScope, "Capture not started: no writer thread");
        return kNoMemory;
    }
    if (!s.exitHookRegistered) {
        s.exitHookRegistered = std::atexit(&CloseAtExit) == 0;
    }
    detail::g_active.store(true, std::memory_order_seq_cst);
    log::Trace(LOG_MESSAGE_INFO, kScope, "Capture started: ", path);
    return kOk;
}

int Stop() noexcept {
    Session& s = TheSession();
    std::lock_guard<std::mutex> lock(s.control);
    if (s.file == nullptr) {
        return kWrongState;
    }
    const bool hadFailed = s.failed.load(std::memory_order_relaxed);
    StopLocked(s);
    if (hadFailed) {
        return kWrongState;
    }
    log::Trace(LOG_MESSAGE_INFO, kScope, "Capture stopped: ", s.path.c_str(), ", records written ",
               s.written.load(std::memory_order_relaxed), ", dropped ", Dropped());
    return kOk;
}

void StartFromEnvironment() noexcept {
    if (g_environmentUsed || On()) {
        return;
    }
    try {
        std::string path;
        if (!platform::EnvironmentValue("ORBPERIX_CAPTURE", &path) || path.empty()) {
            return;
        }
        g_environmentUsed = true;
        Options options;
        std::string text;
        if (platform::EnvironmentValue("ORBPERIX_CAPTURE_TEXT", &text) && text == "1") {
            options.flags |= kOptionUserText;
        }
        Start(path.c_str(), options);
    } catch (const std::bad_alloc&) {
        log::Trace(LOG_MESSAGE_ERROR, kScope, "Capture not started: out of memory");
    }
}

uint64_t Written() noexcept { return TheSession().written.load(std::memory_order_relaxed); }

uint64_t Dropped() noexcept {
    Session& s = TheSession();
    return s.ring.Dropped() + s.lostAfterFailure.load(std::memory_order_relaxed);
}

// ---- Records ----

Record::Record(Direction direction, const char* name, PayloadKind payloadKind) noexcept
    : direction_(direction), kind_(payloadKind), name_(name) {}

void Record::Handle(const void* handle) noexcept {
    if (!handleSet_) {
        handleSet_ = true;
        handle_ = reinterpret_cast<uintptr_t>(handle);
    }
}

void Record::Device(const char* text, uint32_t length) noexcept {
    device_ = text;
    deviceLength_ = text != nullptr ? length : 0;
}

void Record::Service(const char* text, uint32_t length) noexcept {
    service_ = text;
    serviceLength_ = text != nullptr ? length : 0;
}

void Record::Payload(const void* data, uint32_t length) noexcept {
    payload_ = static_cast<const uint8_t*>(data);
    payloadLength_ = data != nullptr ? length : 0;
}

void Record::Result(int32_t result) noexcept {
    result_ = result;
    flags_ |= kFlagResult;
}

void Record::SincePostFrom(uint64_t postTime) noexcept { postTime_ = postTime; }

namespace {

size_t PutText(uint8_t* out, const char* text, size_t length) noexcept {
    const size_t kept = length < kMaxTextField ? length : kMaxTextField;
    if (kept != 0) {
        std::memcpy(out, text, kept);
    }
    return kept;
}

// Zeroes the typed text of a text-input or message packet (classes 2 and 4) in `packet`.
bool WithholdText(uint8_t* packet, size_t size) noexcept {
    if (size < 15) {
        return false;
    }
    const uint8_t packetClass = packet[1];
    const size_t textLength = coding::GetFixed16BE(packet + 13);
    size_t from = 0;
    size_t length = 0;
    if (packetClass == 2 && packet[10] == 0) {
        from = 15;
        length = textLength;
    } else if (packetClass == 4) {
        from = 17;  // behind the message word
        length = textLength >= 2 ? textLength - 2 : 0;
    } else {
        return false;
    }
    if (from < size) {
        const size_t room = size - from;
        std::memset(packet + from, 0, length < room ? length : room);
    }
    return true;
}

}  // namespace

void Record::Submit(uint64_t start, uint64_t end) noexcept {
    Session& s = TheSession();
    s.producers.fetch_add(1, std::memory_order_seq_cst);
    if (!detail::g_active.load(std::memory_order_seq_cst)) {
        s.producers.fetch_sub(1, std::memory_order_release);
        return;
    }
    RecordRing::Cell* cell = s.ring.TryClaim();
    if (cell == nullptr) {
        s.producers.fetch_sub(1, std::memory_order_release);
        return;
    }
    uint8_t* bytes = cell->bytes;  // built in place: the consumer reads it only after Publish
    const bool whole = kind_ == PayloadKind::kRemoteControl || kind_ == PayloadKind::kHeartbeat ||
                       kind_ == PayloadKind::kButtonData;
    const size_t cap = whole ? kMaxCapturedPayload : s.payloadCap.load(std::memory_order_relaxed);
    const size_t captured = payloadLength_ < cap ? payloadLength_ : cap;
    uint8_t flags = flags_;
    if (captured < payloadLength_) {
        flags |= kFlagTruncated;
    }
    if (postTime_ != 0 && end >= postTime_) {
        flags |= kFlagSincePost;
    }
    size_t size = kRecordHeaderSize;
    const size_t nameLength = PutText(bytes + size, name_, std::strlen(name_));
    size += nameLength;
    const size_t deviceLength = PutText(bytes + size, device_, deviceLength_);
    size += deviceLength;
    const size_t serviceLength = PutText(bytes + size, service_, serviceLength_);
    size += serviceLength;
    if (captured != 0) {
        std::memcpy(bytes + size, payload_, captured);
        if (kind_ == PayloadKind::kRemoteControl &&
            (s.flags.load(std::memory_order_relaxed) & kOptionUserText) == 0 &&
            WithholdText(bytes + size, captured)) {
            flags |= kFlagTextWithheld;
        }
    }
    bytes[0] = kRecordVersion;
    bytes[kOffDirection] = static_cast<uint8_t>(direction_);
    bytes[kOffFlags] = flags;
    bytes[kOffPayloadKind] = static_cast<uint8_t>(kind_);
    PutLE(bytes + kOffResult, static_cast<uint32_t>(result_), 4);
    PutLE(bytes + kOffThread, platform::CurrentThreadId(), 8);
    PutLE(bytes + kOffHandle, handle_, 8);
    PutLE(bytes + kOffDuration, end >= start ? end - start : 0, 8);
    PutLE(bytes + kOffSincePost, (flags & kFlagSincePost) != 0 ? end - postTime_ : 0, 8);
    PutLE(bytes + kOffAux, aux_, 4);
    PutLE(bytes + kOffPayloadLength, payloadLength_, 4);
    PutLE(bytes + kOffChecksum, payload_ != nullptr ? Checksum(payload_, payloadLength_) : 0, 4);
    bytes[kOffNameLength] = static_cast<uint8_t>(nameLength);
    bytes[kOffDeviceLength] = static_cast<uint8_t>(deviceLength);
    bytes[kOffServiceLength] = static_cast<uint8_t>(serviceLength);
    bytes[55] = 0;
    PutLE(bytes + kOffCapturedLength, captured, 2);
    PutLE(bytes + 58, 0, 2);
    size += captured;
    cell->time = start;
    cell->length = static_cast<uint32_t>(size);
    s.ring.Publish(cell);
    s.producers.fetch_sub(1, std::memory_order_release);
}

// ---- Hooks ----

namespace {
// Within the limits the library applies to engine records (provider/delivery.h): a record
// beyond them is not read here either.
constexpr uint32_t kEngineTextLimit = 4096;
constexpr uint32_t kEnginePayloadLimit = 64u * 1024u * 1024u;

thread_local uint64_t t_postTime = 0;
}  // namespace

void Notification(const NotificationFacts& facts) noexcept {
    const uint64_t now = Now();
    Record record(Direction::kEngineToLibrary, facts.name, facts.payloadKind);
    record.Handle(facts.handle);
    if (facts.deviceIdLength <= kEngineTextLimit) {
        record.Device(facts.deviceId, facts.deviceIdLength);
    }
    if (facts.serviceIdLength <= kEngineTextLimit) {
        record.Service(facts.serviceId, facts.serviceIdLength);
    }
    record.Aux(facts.aux);
    if (facts.payloadLength <= kEnginePayloadLimit) {
        record.Payload(facts.payload, facts.payloadLength);
    }
    record.Submit(now, now);
}

void Listener(const char* event, uint64_t start, bool threw) noexcept {
    Record record(Direction::kLibraryToHost, event, PayloadKind::kNone);
    if (threw) {
        record.ListenerThrew();
    }
    record.Submit(start, Now());
}

void PostScope::Begin() noexcept {
    t_postTime = Now();
    marked_ = true;
}

void PostScope::End() noexcept { t_postTime = 0; }

uint64_t PostTime() noexcept { return t_postTime; }

}  // namespace capture
}  // namespace OrbPerix
