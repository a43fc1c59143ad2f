// The developer log: every line the library logs, also handed to an output a host developer
// turns on (stderr, a file, or a callback of the host's), with its level and scope, and the
// details of a failed start that the host installation's two logging libraries never receive.
//
// Off by default. ORBPERIX_LOG ("stderr" or a file path) and ORBPERIX_LOG_LEVEL (trace, debug,
// warn, info, error, or 0-4; info when unset) are read at the first Initialize; SetOutput and
// SetCallback change it at any time. The lines the two logging libraries receive are the same
// whether it is on or off. Off, it costs the logging paths one relaxed load and a branch.
//
// Threads: lines come from host, engine and heartbeat threads alike; the outputs are used
// without any lock of this library, so a callback may call back into the library. A line
// logged from inside the callback, on the callback's thread, is not handed to the callback
// again (it still reaches the logging libraries). A callback that throws loses that line only
// (counted); a slow callback slows the thread that logs, nothing else.
#ifndef ORBPERIX_SRC_LOG_DEVELOPER_LOG_H_
#define ORBPERIX_SRC_LOG_DEVELOPER_LOG_H_

#include <atomic>
#include <cstdint>
#include <string>

namespace OrbPerix {
namespace log {
namespace developer {

// The host's callback: level (LOG_MESSAGE_LEVEL, 0-4), scope and text as UTF-8 (valid for the
// call only).
using Callback = void (*)(void* userData, int level, const char* scope, const char* text);

// True while an output is on.
extern std::atomic<bool> g_on;
inline bool On() noexcept { return g_on.load(std::memory_order_relaxed); }

// The first call reads ORBPERIX_LOG and ORBPERIX_LOG_LEVEL and turns the output on when the first
// names one (an output the host set already is kept); later calls do nothing. A level or file
// that cannot be used is reported on stderr once.
void ConfigureFromEnvironment() noexcept;

// "stderr", a file path (created or truncated), or null/empty for off; lines below
// `minimumLevel` are left out. 0; -2 for a level outside 0-4; -13 when the file cannot be
// opened (the reason goes to stderr) or a line of the previous output is still being written
// after 2 s (the old output is then left open for good rather than closed under that line).
int SetOutput(const char* destination, int minimumLevel) noexcept;

// `fn` (null: off) receives every line at `minimumLevel` or above. Returns once no call of the
// previous callback is under way on another thread: 0, so that the host may free its data; -13
// when one still runs after 2 s; -2 for a level outside 0-4.
int SetCallback(int minimumLevel, Callback fn, void* userData) noexcept;

// Marks a scope in which this thread holds a lock of the library that may be held while a line
// is logged (declare it before the lock, so that it ends after the unlock). Lines for the
// callback logged inside wait on this thread and reach it when the outermost such scope ends,
// so that the host's callback never runs under the lock. The file output is written at once.
class HoldingLock {
public:
    HoldingLock() noexcept;
    ~HoldingLock();
    HoldingLock(const HoldingLock&) = delete;
    HoldingLock& operator=(const HoldingLock&) = delete;
};

// Hands one line to the outputs. Called by the logging paths only while On().
void Write(int level, const char* scope, const std::wstring& text) noexcept;

// Lines the callback threw on, since the process began.
uint64_t CallbackExceptions() noexcept;

// Parses a level name or digit ("error", "4"); false when it is neither.
bool ParseLevel(const std::string& text, int* level) noexcept;

}  // namespace developer
}  // namespace log
}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_LOG_DEVELOPER_LOG_H_
