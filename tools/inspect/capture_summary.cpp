#include "capture_summary.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace OrbPerix {
namespace inspect {
namespace {

using capture_file::Capture;
using capture_file::Record;

constexpr uint8_t kFlagResult = 0x01;
constexpr uint8_t kFlagSincePost = 0x08;
constexpr uint8_t kFlagListenerThrew = 0x10;
constexpr uint8_t kHeartbeat = 2;

bool IsError(const Record& r) {
    return ((r.flags & kFlagResult) != 0 && r.result != 0) || (r.flags & kFlagListenerThrew) != 0;
}

std::string Micros(uint64_t ns) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.1f us", static_cast<double>(ns) / 1000.0);
    return text;
}

std::string Millis(uint64_t ns) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.1f ms", static_cast<double>(ns) / 1e6);
    return text;
}

// The value below which `fraction` of the sorted values lie (nearest rank).
uint64_t Percentile(const std::vector<uint64_t>& sorted, double fraction) {
    if (sorted.empty()) {
        return 0;
    }
    size_t rank = static_cast<size_t>(fraction * static_cast<double>(sorted.size()) + 0.999999);
    rank = std::min(std::max<size_t>(rank, 1), sorted.size());
    return sorted[rank - 1];
}

struct OperationStats {
    uint64_t count = 0;
    uint64_t errors = 0;
    uint64_t totalNs = 0;
    uint64_t maxNs = 0;
};

std::vector<uint64_t> HeartbeatTimes(const Capture& capture) {
    std::vector<uint64_t> times;
    for (const Record& r : capture.records) {
        if (r.payloadKind == kHeartbeat) {
            times.push_back(r.timeNs);
        }
    }
    std::sort(times.begin(), times.end());
    return times;
}

}  // namespace

void WriteSummary(const Capture& capture, std::ostream& out) {
    const std::vector<Record>& records = capture.records;
    uint64_t first = records.empty() ? 0 : records.front().timeNs;
    uint64_t last = first;
    for (const Record& r : records) {
        first = std::min(first, r.timeNs);
        last = std::max(last, r.timeNs + r.durationNs);
    }
    out << "capture by " << (capture.application.empty() ? "?" : capture.application) << ": "
        << records.size() << " records over " << Millis(last - first);
    if (capture.hasStatistics) {
        out << "; the writer reports " << capture.statWritten << " written, "
            << capture.statDropped << " dropped";
    } else {
        out << "; no statistics block (the capture was not closed)";
    }
    out << "\n";

    static const char* const kTitles[] = {"calls into the engine", "engine notifications",
                                          "host listener calls"};
    for (uint8_t direction = 0; direction < 3; ++direction) {
        std::map<std::string, OperationStats> byName;
        for (const Record& r : records) {
            if (r.direction != direction) continue;
            OperationStats& s = byName[r.name];
            ++s.count;
            s.errors += IsError(r) ? 1u : 0u;
            s.totalNs += r.durationNs;
            s.maxNs = std::max(s.maxNs, r.durationNs);
        }
        if (byName.empty()) continue;
        out << "\n" << kTitles[direction] << ":\n";
        char line[256];
        std::snprintf(line, sizeof(line), "  %-42s %7s %7s %12s %12s\n", "operation", "count",
                      "errors", "mean", "max");
        out << line;
        for (const auto& [name, s] : byName) {
            std::snprintf(line, sizeof(line), "  %-42s %7llu %7llu %12s %12s\n", name.c_str(),
                          static_cast<unsigned long long>(s.count),
                          static_cast<unsigned long long>(s.errors),
                          Micros(s.totalNs / s.count).c_str(), Micros(s.maxNs).c_str());
            out << line;
        }
    }

    size_t errors = 0;
    for (const Record& r : records) {
        if (!IsError(r)) continue;
        if (errors++ == 0) out << "\nerrors:\n";
        if (errors <= 20) {
            out << "  +" << Millis(r.timeNs - first) << " " << r.name;
            if ((r.flags & kFlagListenerThrew) != 0) {
                out << " (listener threw)";
            } else {
                out << " -> " << r.result;
            }
            if (!r.device.empty()) out << " [" << r.device << "]";
            out << "\n";
        }
    }
    if (errors > 20) out << "  ... and " << errors - 20 << " more\n";
    if (errors == 0) out << "\nerrors: none\n";

    const std::vector<uint64_t> beats = HeartbeatTimes(capture);
    out << "\nheartbeat: " << beats.size() << " packets";
    if (beats.size() >= 2) {
        std::vector<uint64_t> gaps;
        for (size_t i = 1; i < beats.size(); ++i) gaps.push_back(beats[i] - beats[i - 1]);
        std::vector<uint64_t> sorted = gaps;
        std::sort(sorted.begin(), sorted.end());
        const uint64_t median = Percentile(sorted, 0.5);
        const double span = static_cast<double>(beats.back() - beats.front()) / 1e9;
        char rate[64];
        std::snprintf(rate, sizeof(rate), "%.1f", static_cast<double>(gaps.size()) / span);
        out << ", " << rate << " per second while flowing, median interval " << Millis(median)
            << ", longest gap " << Millis(sorted.back()) << "\n";
        size_t stalls = 0;
        for (size_t i = 0; i < gaps.size(); ++i) {
            if (gaps[i] > 2 * median && stalls++ < 10) {
                out << "  gap of " << Millis(gaps[i]) << " at +" << Millis(beats[i] - first)
                    << "\n";
            }
        }
        if (stalls == 0) out << "  no gap longer than twice the median interval\n";
    } else {
        out << "\n";
    }

    std::vector<uint64_t> latency;
    for (const Record& r : records) {
        if ((r.flags & kFlagSincePost) != 0) latency.push_back(r.sincePostNs);
    }
    std::sort(latency.begin(), latency.end());
    out << "\npost to engine write (" << latency.size() << " remote-control events)";
    if (!latency.empty()) {
        out << ": p50 " << Micros(Percentile(latency, 0.5)) << ", p90 "
            << Micros(Percentile(latency, 0.9)) << ", p99 " << Micros(Percentile(latency, 0.99))
            << ", max " << Micros(latency.back());
    }
    out << "\n";
}

void WriteTimeline(const Capture& capture, std::ostream& out) {
    const std::vector<Record>& records = capture.records;
    // Lanes in order of each thread's first record.
    std::vector<uint64_t> threads;
    uint64_t first = records.empty() ? 0 : records.front().timeNs;
    uint64_t last = first + 1;
    for (const Record& r : records) {
        if (std::find(threads.begin(), threads.end(), r.thread) == threads.end()) {
            threads.push_back(r.thread);
        }
        first = std::min(first, r.timeNs);
        last = std::max(last, r.timeNs + r.durationNs);
    }
    const double left = 150, right = 30, top = 50, lane = 44, width = 1200;
    const double height = top + lane * static_cast<double>(threads.size()) + 70;
    const double plot = width - left - right;
    const double span = static_cast<double>(std::max<uint64_t>(last - first, 1));
    auto x = [&](uint64_t t) { return left + plot * static_cast<double>(t - first) / span; };
    auto laneOf = [&](uint64_t thread) {
        return static_cast<double>(std::find(threads.begin(), threads.end(), thread) -
                                   threads.begin());
    };
    char buf[512];
    std::snprintf(buf, sizeof(buf),
                  "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" "
                  "font-family=\"sans-serif\" font-size=\"12\">\n"
                  "<rect width=\"100%%\" height=\"100%%\" fill=\"white\"/>\n",
                  width, height);
    out << buf;
    out << "<text x=\"10\" y=\"20\" font-size=\"14\">OrbPerix capture: " << records.size()
        << " records over " << Millis(last - first) << " (a lane per thread)</text>\n";
    for (size_t i = 0; i < threads.size(); ++i) {
        const double y = top + lane * static_cast<double>(i);
        std::snprintf(buf, sizeof(buf),
                      "<rect x=\"%.0f\" y=\"%.1f\" width=\"%.0f\" height=\"%.0f\" fill=\"%s\"/>\n"
                      "<text x=\"10\" y=\"%.1f\">thread %llu</text>\n",
                      left, y, plot, lane - 4, i % 2 == 0 ? "#f4f4f4" : "#ebebeb",
                      y + lane / 2 + 4, static_cast<unsigned long long>(threads[i]));
        out << buf;
    }
    // Time axis with ten ticks.
    const double axis = top + lane * static_cast<double>(threads.size()) + 10;
    for (int i = 0; i <= 10; ++i) {
        const double tx = left + plot * i / 10.0;
        std::snprintf(buf, sizeof(buf),
                      "<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"#999\"/>"
                      "<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"middle\">%s</text>\n",
                      tx, axis, tx, axis + 5, tx, axis + 18,
                      Millis(static_cast<uint64_t>(span * i / 10.0)).c_str());
        out << buf;
    }
    // Marks: calls blue, notifications green, listener calls purple, heartbeats orange, errors
    // red and taller, each at least 1 px wide so that a burst reads as a block.
    for (const Record& r : records) {
        const double y = top + lane * laneOf(r.thread);
        const bool error = IsError(r);
        const char* colour = error ? "#d62728"
                             : r.payloadKind == kHeartbeat ? "#ff7f0e"
                             : r.direction == 1            ? "#2ca02c"
                             : r.direction == 2            ? "#9467bd"
                                                           : "#1f77b4";
        const double band = error ? 2 : 8 + 10.0 * r.direction;
        const double h = error ? lane - 8 : 10;
        const double w = std::max(1.0, x(r.timeNs + r.durationNs) - x(r.timeNs));
        std::snprintf(buf, sizeof(buf),
                      "<rect x=\"%.2f\" y=\"%.1f\" width=\"%.2f\" height=\"%.0f\" fill=\"%s\">"
                      "<title>",
                      x(r.timeNs), y + band, w, h, colour);
        out << buf;
        for (char c : r.name) {
            if (c == '<') out << "&lt;";
            else if (c == '&') out << "&amp;";
            else if (c == '>') out << "&gt;";
            else out << c;
        }
        if ((r.flags & kFlagResult) != 0) out << " -> " << r.result;
        out << " at +" << Millis(r.timeNs - first) << "</title></rect>\n";
    }
    const double legend = axis + 40;
    const char* const names[] = {"call into the engine", "engine notification",
                                 "listener call", "heartbeat", "error"};
    const char* const colours[] = {"#1f77b4", "#2ca02c", "#9467bd", "#ff7f0e", "#d62728"};
    for (int i = 0; i < 5; ++i) {
        std::snprintf(buf, sizeof(buf),
                      "<rect x=\"%d\" y=\"%.1f\" width=\"12\" height=\"12\" fill=\"%s\"/>"
                      "<text x=\"%d\" y=\"%.1f\">%s</text>\n",
                      150 + i * 190, legend, colours[i], 168 + i * 190, legend + 11, names[i]);
        out << buf;
    }
    out << "</svg>\n";
}

}  // namespace inspect
}  // namespace OrbPerix
