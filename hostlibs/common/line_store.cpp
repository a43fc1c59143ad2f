#include "line_store.h"

#include <cstdio>
#include <cstring>

namespace hostlibs {
namespace {

void AppendUtf8(std::string& out, uint32_t code) {
    if (code < 0x80) {
        out.push_back(static_cast<char>(code));
    } else if (code < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (code >> 6)));
        out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    } else if (code < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (code >> 12)));
        out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (code >> 18)));
        out.push_back(static_cast<char>(0x80 | ((code >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    }
}

}  // namespace

std::string Utf8FromWide(const std::wstring& wide) {
    std::string out;
    out.reserve(wide.size());
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
        AppendUtf8(out, code > 0x10FFFF ? 0xFFFD : code);
    }
    return out;
}

int CopyOut(const std::string& text, char* out, int capacity) {
    if (out != nullptr && capacity > 0) {
        const size_t room = static_cast<size_t>(capacity) - 1;
        const size_t n = text.size() < room ? text.size() : room;
        std::memcpy(out, text.data(), n);
        out[n] = '\0';
    }
    return static_cast<int>(text.size());
}

void LineStore::Add(int level, std::string text) {
    if (echo_.load(std::memory_order_relaxed)) {
        std::fprintf(stderr, "[%s %d] %s\n", sinkName_, level, text.c_str());
    }
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.emplace_back(level, std::move(text));
    TrimLocked();
}

void LineStore::TrimLocked() {
    while (lines_.size() > capacity_) {
        lines_.pop_front();
        ++dropped_;
    }
}

int LineStore::Count() {
    std::lock_guard<std::mutex> lock(mutex_);
    return dropped_ + static_cast<int>(lines_.size());
}

int LineStore::Get(int index, int* level, char* text, int capacity) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (index < dropped_ || static_cast<size_t>(index - dropped_) >= lines_.size()) {
        return -1;
    }
    const auto& line = lines_[static_cast<size_t>(index - dropped_)];
    if (level != nullptr) {
        *level = line.first;
    }
    return CopyOut(line.second, text, capacity);
}

int LineStore::Dropped() {
    std::lock_guard<std::mutex> lock(mutex_);
    return dropped_;
}

void LineStore::Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.clear();
    dropped_ = 0;
}

void LineStore::SetCapacity(int capacity) {
    std::lock_guard<std::mutex> lock(mutex_);
    capacity_ = capacity < 1 ? 1 : static_cast<size_t>(capacity);
    TrimLocked();
}

}  // namespace hostlibs
