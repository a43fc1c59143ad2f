// Stand-in for the host installation's TraceKit: keeps the newest lines in memory for tests.
#include "QxLogger.h"
#include "SinkTestApi.h"
#include "line_store.h"

namespace {

hostlibs::LineStore& Store() {
    static hostlibs::LineStore store("QxLogger");
    return store;
}

}  // namespace

QxLogger* QxLogger::GetInstance() {
    static QxLogger instance;
    return &instance;
}

void QxLogger::Log(LOG_MESSAGE_LEVEL level, std::basic_stringstream<wchar_t>& message) {
    Store().Add(static_cast<int>(level), hostlibs::Utf8FromWide(message.str()));
}

extern "C" {

int tracekit_test_line_count(void) { return Store().Count(); }
int tracekit_test_line(int index, int* level, char* text, int capacity) {
    return Store().Get(index, level, text, capacity);
}
void tracekit_test_clear(void) { Store().Clear(); }
void tracekit_test_set_echo(int on) { Store().SetEcho(on != 0); }
int tracekit_test_dropped_lines(void) { return Store().Dropped(); }
void tracekit_test_set_capacity(int lines) { Store().SetCapacity(lines); }

}  // extern "C"
