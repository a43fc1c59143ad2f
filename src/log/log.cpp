#include "log/log.h"

#include "Logger.h"
#include "QxLogger.h"
#include "platform/platform.h"

namespace OrbPerix {
namespace log {
namespace {

// The tag logger: one object for the whole library, built by the first manager line under
// the language's thread-safe static initialisation and destroyed at unload.
Logger& TagLogger() {
    static Logger logger(std::string("VantraMirror"));
    return logger;
}

}  // namespace

void Emit(Route route, LOG_MESSAGE_LEVEL level, const char* scope,
          std::basic_stringstream<wchar_t>& line) noexcept {
    try {
        if (route == Route::kTagAndTrace) {
            TagLogger().Log(level, line);
        }
        if (ORBPERIX_UNLIKELY(developer::On())) {
            developer::Write(static_cast<int>(level), scope, line.str());
        }
        line << L"(" << scope << L")";
        // Asked afresh for every line: the sink owns its singleton's life. A scope that could
        // not be appended (out of memory) drops the line here rather than write it cut short.
        QxLogger* trace = QxLogger::GetInstance();
        if (trace != nullptr && !line.fail()) {
            trace->Log(level, line);
        }
    } catch (...) {
        // A sink that throws (or a tag logger that cannot be built) loses this line only.
    }
}

}  // namespace log
}  // namespace OrbPerix
