// Stand-in for the host installation's CorvusUtil: keeps the newest lines in memory for tests.
#include <atomic>
#include <mutex>
#include <string>

#include "Logger.h"
#include "SinkTestApi.h"
#include "line_store.h"

namespace {

hostlibs::LineStore& Store() {
    static hostlibs::LineStore store("Logger");
    return store;
}

std::atomic<int> g_constructions{0};
std::mutex g_tagMutex;
std::string g_lastTag;

}  // namespace

Logger::Logger(const std::string& tag) {
    g_constructions.fetch_add(1, std::memory_order_relaxed);
    std::lock_guard<std::mutex> lock(g_tagMutex);
    g_lastTag = tag;
}

Logger::~Logger() = default;

void Logger::Log(LOG_MESSAGE_LEVEL level, const std::basic_stringstream<wchar_t>& message) {
    Store().Add(static_cast<int>(level), hostlibs::Utf8FromWide(message.str()));
}

extern "C" {

int corvus_test_line_count(void) { return Store().Count(); }
int corvus_test_line(int index, int* level, char* text, int capacity) {
    return Store().Get(index, level, text, capacity);
}
void corvus_test_clear(void) { Store().Clear(); }
void corvus_test_set_echo(int on) { Store().SetEcho(on != 0); }
int corvus_test_dropped_lines(void) { return Store().Dropped(); }
void corvus_test_set_capacity(int lines) { Store().SetCapacity(lines); }
int corvus_test_logger_constructions(void) {
    return g_constructions.load(std::memory_order_relaxed);
}
int corvus_test_last_tag(char* text, int capacity) {
    std::lock_guard<std::mutex> lock(g_tagMutex);
    return hostlibs::CopyOut(g_lastTag, text, capacity);
}

}  // extern "C"
