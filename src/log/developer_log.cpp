#include "log/developer_log.h"

#include <chrono>
#include <cstdio>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

#include "platform/platform.h"
#include "util/no_destructor.h"
#include "util/result.h"

namespace OrbPerix {
namespace log {
namespace developer {

std::atomic<bool> g_on{false};

namespace {

constexpr int kMinLevel = 0;  // LOG_MESSAGE_TRACE
constexpr int kMaxLevel = 4;  // LOG_MESSAGE_ERROR
constexpr int kDefaultLevel = 3;  // LOG_MESSAGE_INFO
// How long a setter waits for lines still being written to the output it replaces.
constexpr auto kReplaceWait = std::chrono::seconds(2);

// What the outputs are. Published whole through g_config; a writer reads the record it loaded
// for the length of one line, and a setter frees a record only once no writer holds it.
struct Config {
    std::FILE* file = nullptr;
    bool closeFile = false;  // a file of ours (stderr is not)
    int fileLevel = kDefaultLevel;
    Callback fn = nullptr;
    void* userData = nullptr;
    int fnLevel = kDefaultLevel;
};

std::atomic<Config*> g_config{nullptr};
// Writers between loading g_config and finishing with the record they loaded.
std::atomic<int> g_writers{0};
std::atomic<uint64_t> g_callbackExceptions{0};
std::atomic<bool> g_environmentRead{false};
// Set while this thread writes a line (and so while the host's callback runs on it).
thread_local bool t_writing = false;
// HoldingLock scopes open on this thread, and the lines they hold back from the callback.
struct Pending {
    int level;
    const char* scope;  // scopes are literals
    std::string text;
};
thread_local int t_locksHeld = 0;
thread_local std::vector<Pending>* t_pending = nullptr;

// Serialises the setters (never taken by a writer).
std::mutex& SetterMutex() noexcept {
    static NoDestructor<std::mutex> mutex;
    return *mutex;
}

const char* LevelName(int level) noexcept {
    static const char* const kNames[] = {"TRACE", "DEBUG", "WARN", "INFO", "ERROR"};
    return level >= kMinLevel && level <= kMaxLevel ? kNames[level] : "LEVEL?";
}

void AppendUtf8(std::string& out, const std::wstring& wide) {
    for (size_t i = 0; i < wide.size(); ++i) {
        uint32_t code = static_cast<uint32_t>(wide[i]);
        if (sizeof(wchar_t) == 2) {
            code &= 0xFFFFu;
            if (code >= 0xD800 && code < 0xDC00 && i + 1 < wide.size()) {
                const uint32_t low = static_cast<uint32_t>(wide[i + 1]) & 0xFFFFu;
                if (low >= 0xDC00 && low < 0xE000) {
                    code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
                    ++i;
                }
            }
        }
        if (code > 0x10FFFF || (code >= 0xD800 && code < 0xE000)) {
            code = 0xFFFD;
        }
        if (code < 0x80) {
            out += static_cast<char>(code);
        } else if (code < 0x800) {
            out += static_cast<char>(0xC0 | (code >> 6));
            out += static_cast<char>(0x80 | (code & 0x3F));
        } else if (code < 0x10000) {
            out += static_cast<char>(0xE0 | (code >> 12));
            out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (code & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (code >> 18));
            out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (code & 0x3F));
        }
    }
}

// Publishes `next` (may be null: all off) and waits for the writers of the record it replaces.
// True when that record is no longer read and may be freed. REQUIRES: SetterMutex() held.
bool Publish(Config* next) noexcept {
    g_on.store(next != nullptr && (next->file != nullptr || next->fn != nullptr),
               std::memory_order_relaxed);
    g_config.exchange(next, std::memory_order_seq_cst);
    // A setter called from inside the callback is one of the writers itself.
    const int own = t_writing ? 1 : 0;
    const auto deadline = std::chrono::steady_clock::now() + kReplaceWait;
    while (g_writers.load(std::memory_order_seq_cst) > own) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

// Replaces the record with a copy changed by `change`; frees the old one once unread.
template <typename Change>
int Replace(Change&& change) noexcept {
    std::lock_guard<std::mutex> lock(SetterMutex());
    Config* old = g_config.load(std::memory_order_relaxed);
    Config* next = new (std::nothrow) Config(old != nullptr ? *old : Config());
    if (next == nullptr) {
        return kNoMemory;
    }
    std::FILE* replacedFile = change(*next);
    if (next->file == nullptr && next->fn == nullptr) {
        delete next;
        next = nullptr;
    }
    if (!Publish(next)) {
        return kUnavailable;  // `next` is live; `old` (and its file) stays: a writer holds it
    }
    if (replacedFile != nullptr) {
        std::fclose(replacedFile);
    }
    delete old;
    return kOk;
}

bool ValidLevel(int level) noexcept { return level >= kMinLevel && level <= kMaxLevel; }

}  // namespace

bool ParseLevel(const std::string& text, int* level) noexcept {
    static const char* const kNames[] = {"trace", "debug", "warn", "info", "error"};
    for (int n = kMinLevel; n <= kMaxLevel; ++n) {
        if (text == kNames[n] || (text.size() == 1 && text[0] == static_cast<char>('0' + n))) {
            *level = n;
            return true;
        }
    }
    return false;
}

int SetOutput(const char* destination, int minimumLevel) noexcept {
    if (!ValidLevel(minimumLevel)) {
        return kInvalidArgument;
    }
    std::FILE* file = nullptr;
    bool closeFile = false;
    if (destination != nullptr && destination[0] != '\0') {
        if (std::string(destination) == "stderr") {
            file = stderr;
        } else {
            std::string reason;
            file = platform::OpenFileForWriting(destination, &reason);
            if (file == nullptr) {
                std::fprintf(stderr, "orbperix: cannot open the log file %s: %s\n", destination,
                             reason.c_str());
                return kUnavailable;
            }
            closeFile = true;
        }
    }
    const int result = Replace([&](Config& next) -> std::FILE* {
        std::FILE* replaced = next.closeFile ? next.file : nullptr;
        next.file = file;
        next.closeFile = closeFile;
        next.fileLevel = minimumLevel;
        return replaced;
    });
    if (result == kNoMemory && closeFile) {
        std::fclose(file);  // never published
    }
    return result;
}

int SetCallback(int minimumLevel, Callback fn, void* userData) noexcept {
    if (!ValidLevel(minimumLevel)) {
        return kInvalidArgument;
    }
    return Replace([&](Config& next) -> std::FILE* {
        next.fn = fn;
        next.userData = fn != nullptr ? userData : nullptr;
        next.fnLevel = minimumLevel;
        return nullptr;
    });
}

void ConfigureFromEnvironment() noexcept {
    if (g_environmentRead.exchange(true)) {
        return;
    }
    try {
        std::string destination;
        if (!platform::EnvironmentValue("ORBPERIX_LOG", &destination) || destination.empty()) {
            return;
        }
        int level = kDefaultLevel;
        std::string levelText;
        if (platform::EnvironmentValue("ORBPERIX_LOG_LEVEL", &levelText) && !levelText.empty() &&
            !ParseLevel(levelText, &level)) {
            std::fprintf(stderr,
                         "orbperix: ORBPERIX_LOG_LEVEL=%s is not a level (trace, debug, warn, "
                         "info, error or 0-4); using info\n",
                         levelText.c_str());
        }
        {
            const Config* current = g_config.load(std::memory_order_acquire);
            if (current != nullptr && current->file != nullptr) {
                return;  // the host chose an output already
            }
        }
        SetOutput(destination.c_str(), level);
    } catch (...) {
        // Out of memory reading the environment: the developer log stays off.
    }
}

namespace {

void CallBack(const Config& config, int level, const char* scope, const char* text) noexcept {
    try {
        config.fn(config.userData, level, scope, text);
    } catch (...) {
        g_callbackExceptions.fetch_add(1, std::memory_order_relaxed);
    }
}

// Holds a line back from the callback until the thread's last HoldingLock ends.
void Defer(int level, const char* scope, std::string&& text) {
    if (t_pending == nullptr) {
        t_pending = new std::vector<Pending>();
    }
    t_pending->push_back(Pending{level, scope, std::move(text)});
}

}  // namespace

void Write(int level, const char* scope, const std::wstring& text) noexcept {
    if (t_writing) {
        return;  // logged from inside the callback on its own thread
    }
    t_writing = true;
    g_writers.fetch_add(1, std::memory_order_seq_cst);
    const Config* config = g_config.load(std::memory_order_seq_cst);
    if (config != nullptr) {
        try {
            std::string utf8;
            AppendUtf8(utf8, text);
            if (config->file != nullptr && level >= config->fileLevel) {
                char head[64];
                std::snprintf(head, sizeof(head), "orbperix %s [thread %llu] ", LevelName(level),
                              static_cast<unsigned long long>(platform::CurrentThreadId()));
                std::string line = head;
                line.append(scope).append(": ").append(utf8).append("\n");
                std::fwrite(line.data(), 1, line.size(), config->file);
                std::fflush(config->file);
            }
            if (config->fn != nullptr && level >= config->fnLevel) {
                if (t_locksHeld > 0) {
                    Defer(level, scope, std::move(utf8));
                } else {
                    CallBack(*config, level, scope, utf8.c_str());
                }
            }
        } catch (...) {
            // Out of memory building the line: the developer output loses it.
        }
    }
    g_writers.fetch_sub(1, std::memory_order_seq_cst);
    t_writing = false;
}

HoldingLock::HoldingLock() noexcept { ++t_locksHeld; }

HoldingLock::~HoldingLock() {
    if (--t_locksHeld != 0 || t_pending == nullptr) {
        return;
    }
    std::vector<Pending>* pending = t_pending;
    t_pending = nullptr;
    if (!t_writing) {
        t_writing = true;
        g_writers.fetch_add(1, std::memory_order_seq_cst);
        const Config* config = g_config.load(std::memory_order_seq_cst);
        for (const Pending& line : *pending) {
            // The callback in force now, at the level it asks for.
            if (config != nullptr && config->fn != nullptr && line.level >= config->fnLevel) {
                CallBack(*config, line.level, line.scope, line.text.c_str());
            }
        }
        g_writers.fetch_sub(1, std::memory_order_seq_cst);
        t_writing = false;
    }
    delete pending;
}

uint64_t CallbackExceptions() noexcept {
    return g_callbackExceptions.load(std::memory_order_relaxed);
}

}  // namespace developer
}  // namespace log
}  // namespace OrbPerix
