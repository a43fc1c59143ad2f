// CorvusUtil: the tag logger of the host installation.
//
// This repository builds a stand-in with this exact declaration so that OrbPerixProvider builds,
// runs and is tested anywhere; the host installation's CorvusUtil replaces it by file.
#ifndef HOSTLIBS_CORVUSUTIL_LOGGER_H_
#define HOSTLIBS_CORVUSUTIL_LOGGER_H_

#include <sstream>
#include <string>

#include "LogMessageLevel.h"

#if defined(_WIN32)
#if defined(CORVUSUTIL_COMPILING)
#define CORVUSUTIL_API __declspec(dllexport)
#else
#define CORVUSUTIL_API __declspec(dllimport)
#endif
#else
#define CORVUSUTIL_API __attribute__((visibility("default")))
#endif

class CORVUSUTIL_API Logger {
public:
    explicit Logger(const std::string& tag);
    ~Logger();
    void Log(LOG_MESSAGE_LEVEL level, const std::basic_stringstream<wchar_t>& message);
};

#endif  // HOSTLIBS_CORVUSUTIL_LOGGER_H_
