// orbperix-inspect: decodes remote-control packets written as hex, e.g. copied from a log or a
// capture, and prints each one on a line a person reads at a glance.
//
//   orbperix-inspect 00 00 00 1A 00 00 00 00 00 00 0E 00 09 ...   (one packet, any spacing)
//   orbperix-inspect 0000001A000000000000...                       (the same as one string)
//   orbperix-inspect < packets.txt                                 (one packet per line)
//   orbperix-inspect --capture FILE.pcapng [--svg TIMELINE.svg]    (a capture: summary, picture)
//
// Exit status: 0 when every packet decodes, 1 when any is malformed (its reason is printed),
// 2 for input that is not hex. For a capture: 0, or 1 for a file that is truncated, foreign or
// corrupt (the message names the offset) or an SVG that cannot be written.
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "capture_reader.h"
#include "capture_summary.h"
#include "packet_decoder.h"

namespace {

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Hex digits with any blanks, commas, colons or dashes between bytes; "0x" prefixes allowed.
bool ParseHex(const std::string& text, std::vector<uint8_t>* bytes, std::string* error) {
    std::string digits;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '0' && i + 1 < text.size() && (text[i + 1] == 'x' || text[i + 1] == 'X') &&
            (i == 0 || !std::isxdigit(static_cast<unsigned char>(text[i - 1])))) {
            ++i;
            continue;
        }
        if (std::isspace(static_cast<unsigned char>(c)) || c == ',' || c == ':' || c == '-') {
            continue;
        }
        if (HexValue(c) < 0) {
            *error = std::string("not a hex digit: '") + c + "'";
            return false;
        }
        digits += c;
    }
    if (digits.size() % 2 != 0) {
        *error = "odd number of hex digits (" + std::to_string(digits.size()) + ")";
        return false;
    }
    bytes->clear();
    for (size_t i = 0; i < digits.size(); i += 2) {
        bytes->push_back(static_cast<uint8_t>(HexValue(digits[i]) * 16 + HexValue(digits[i + 1])));
    }
    return true;
}

// Returns 0 for a decoded packet, 1 for a malformed one, 2 for bad hex.
int Inspect(const std::string& text, const std::string& label) {
    std::vector<uint8_t> bytes;
    std::string error;
    if (!ParseHex(text, &bytes, &error)) {
        std::cout << label << "bad input: " << error << "\n";
        return 2;
    }
    OrbPerix::packet::DecodedPacket packet;
    std::string reason;
    if (!OrbPerix::packet::DecodePacket(bytes.data(), bytes.size(), &packet, &reason)) {
        std::cout << label << "malformed (" << bytes.size() << " bytes): " << reason << "\n";
        return 1;
    }
    std::cout << label << OrbPerix::packet::Describe(packet) << "\n";
    return 0;
}

// Reads a capture, prints its summary and, when asked, writes its timeline picture.
int InspectCapture(const std::string& path, const std::string& svgPath) {
    OrbPerix::capture_file::Capture capture;
    std::string error;
    if (!OrbPerix::capture_file::ReadCaptureFile(path, &capture, &error)) {
        std::cout << path << ": not a readable OrbPerix capture: " << error << "\n";
        return 1;
    }
    OrbPerix::inspect::WriteSummary(capture, std::cout);
    if (!svgPath.empty()) {
        std::ofstream svg(svgPath);
        OrbPerix::inspect::WriteTimeline(capture, svg);
        svg.close();
        if (!svg) {
            std::cout << svgPath << ": cannot write the timeline\n";
            return 1;
        }
        std::cout << "\ntimeline written to " << svgPath << "\n";
    }
    return 0;
}

void Usage() {
    std::cout << "usage: orbperix-inspect [HEX...]\n"
                 "  Decodes one remote-control packet given as hex arguments, or one packet\n"
                 "  per line from standard input when no argument is given.\n"
                 "  Exit status: 0 all decoded, 1 a packet is malformed, 2 input is not hex.\n"
                 "usage: orbperix-inspect --capture FILE [--svg OUT.svg]\n"
                 "  Summarises a capture (ORBPERIX_CAPTURE / orbperix_capture_start) and draws\n"
                 "  its timeline. Exit status 1 for a truncated, foreign or corrupt file.\n";
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1) {
        const std::string first = argv[1];
        if (first == "-h" || first == "--help") {
            Usage();
            return 0;
        }
        if (first == "--capture") {
            if (argc == 3 || (argc == 5 && std::string(argv[3]) == "--svg")) {
                return InspectCapture(argv[2], argc == 5 ? argv[4] : "");
            }
            Usage();
            return 2;
        }
        std::string text;
        for (int i = 1; i < argc; ++i) {
            text += argv[i];
            text += ' ';
        }
        return Inspect(text, "");
    }

    int status = 0;
    std::string line;
    int number = 0;
    int packets = 0;
    while (std::getline(std::cin, line)) {
        ++number;
        const size_t start = line.find_first_not_of(" \t\r");
        if (start == std::string::npos || line[start] == '#') {
            continue;  // blank lines and comments
        }
        ++packets;
        const int result = Inspect(line, "line " + std::to_string(number) + ": ");
        if (result > status) status = result;
    }
    if (packets == 0) {
        Usage();
        return 2;
    }
    return status;
}
