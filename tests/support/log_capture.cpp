#include "log_capture.h"

#include <algorithm>
#include <ostream>

#include "SinkTestApi.h"

namespace {

template <typename CountFn, typename LineFn>
std::vector<LogLine> Read(CountFn count, LineFn line) {
    std::vector<LogLine> lines;
    const int n = count();
    for (int i = 0; i < n; ++i) {
        int level = 0;
        const int length = line(i, &level, nullptr, 0);
        if (length < 0) {
            continue;  // dropped: the stand-in keeps only the newest lines
        }
        std::string text(static_cast<size_t>(length) + 1, '\0');
        line(i, &level, &text[0], length + 1);
        text.resize(static_cast<size_t>(length));
        lines.push_back(LogLine{level, text});
    }
    return lines;
}

}  // namespace

std::vector<LogLine> TagLines() {
    return Read(corvus_test_line_count, corvus_test_line);
}

std::vector<LogLine> TraceLines() {
    return Read(tracekit_test_line_count, tracekit_test_line);
}

std::vector<std::string> TraceTexts() {
    std::vector<std::string> texts;
    for (const LogLine& line : TraceLines()) {
        texts.push_back(line.text);
    }
    return texts;
}

void ClearLogs() {
    corvus_test_clear();
    tracekit_test_clear();
}

bool HasTraceLine(const std::string& text) {
    return CountTraceLines(text) > 0;
}

int CountTraceLines(const std::string& text) {
    const std::vector<std::string> texts = TraceTexts();
    return static_cast<int>(std::count(texts.begin(), texts.end(), text));
}

void PrintTo(const LogLine& line, std::ostream* os) {
    *os << "{" << line.level << ", \"" << line.text << "\"}";
}
