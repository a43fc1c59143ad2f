// In-memory line store shared by the two log-sink stand-ins. Thread-safe.
//
// Bounded: it keeps the newest `capacity` lines and drops the oldest, so that a host that runs
// for days does not grow. Lines are numbered from the last Clear; a dropped line's number
// stays taken (Count goes on growing), so a caller that marked Count earlier still finds the
// lines after its mark.
#ifndef HOSTLIBS_COMMON_LINE_STORE_H_
#define HOSTLIBS_COMMON_LINE_STORE_H_

#include <atomic>
#include <mutex>
#include <string>
#include <deque>
#include <utility>

namespace hostlibs {

// UTF-8 form of a wide string (UTF-16 where wchar_t has 16 bits, UTF-32 elsewhere).
std::string Utf8FromWide(const std::wstring& wide);

// Copies `text` into a C buffer as the test API describes; returns the full length.
int CopyOut(const std::string& text, char* out, int capacity);

class LineStore {
public:
    static constexpr int kDefaultCapacity = 10000;

    explicit LineStore(const char* sinkName) : sinkName_(sinkName) {}

    void Add(int level, std::string text);
    // Lines received since the last Clear (kept and dropped).
    int Count();
    // Line `index` (0 = the first since Clear); -1 when out of range or already dropped.
    int Get(int index, int* level, char* text, int capacity);
    // Lines dropped since the last Clear to stay within the capacity.
    int Dropped();
    // Forgets every line and resets the numbering and the dropped count.
    void Clear();
    // At least 1; the oldest lines beyond a smaller capacity are dropped at once.
    void SetCapacity(int capacity);
    void SetEcho(bool on) { echo_.store(on, std::memory_order_relaxed); }

private:
    void TrimLocked();

    const char* sinkName_;
    std::mutex mutex_;
    std::deque<std::pair<int, std::string>> lines_;
    size_t capacity_ = kDefaultCapacity;
    int dropped_ = 0;
    std::atomic<bool> echo_{false};
};

}  // namespace hostlibs

#endif  // HOSTLIBS_COMMON_LINE_STORE_H_
