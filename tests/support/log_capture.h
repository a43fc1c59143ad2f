// Log lines as the two sink stand-ins received them.
#ifndef ORBPERIX_TESTS_SUPPORT_LOG_CAPTURE_H_
#define ORBPERIX_TESTS_SUPPORT_LOG_CAPTURE_H_

#include <string>
#include <vector>

struct LogLine {
    int level;
    std::string text;  // UTF-8; QxLogger lines end with "(" scope ")"
    bool operator==(const LogLine& other) const {
        return level == other.level && text == other.text;
    }
};

std::vector<LogLine> TagLines();    // CorvusUtil's Logger
std::vector<LogLine> TraceLines();  // TraceKit's QxLogger
std::vector<std::string> TraceTexts();
void ClearLogs();
// True when some QxLogger line is exactly `text`.
bool HasTraceLine(const std::string& text);
// Number of QxLogger lines that are exactly `text`.
int CountTraceLines(const std::string& text);

// gtest printing.
void PrintTo(const LogLine& line, std::ostream* os);

#endif  // ORBPERIX_TESTS_SUPPORT_LOG_CAPTURE_H_
