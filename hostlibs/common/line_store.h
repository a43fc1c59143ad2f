// In-memory line store shared by the two log-sink stand-ins. Thread-safe.
#ifndef HOSTLIBS_COMMON_LINE_STORE_H_
#define HOSTLIBS_COMMON_LINE_STORE_H_

#include <atomic>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace hostlibs {

// UTF-8 form of a wide string (UTF-16 where wchar_t has 16 bits, UTF-32 elsewhere).
std::string Utf8FromWide(const std::wstring& wide);

// Copies `text` into a C buffer as the test API describes; returns the full length.
int CopyOut(const std::string& text, char* out, int capacity);

class LineStore {
public:
    explicit LineStore(const char* sinkName) : sinkName_(sinkName) {}

    void Add(int level, std::string text);
    int Count();
    int Get(int index, int* level, char* text, int capacity);
    void Clear();
    void SetEcho(bool on) { echo_.store(on, std::memory_order_relaxed); }

private:
    const char* sinkName_;
    std::mutex mutex_;
    std::vector<std::pair<int, std::string>> lines_;
    std::atomic<bool> echo_{false};
};

}  // namespace hostlibs

#endif  // HOSTLIBS_COMMON_LINE_STORE_H_
