// TraceKit: the trace logger singleton of the host installation.
//
// This repository builds a stand-in with this exact declaration; the host installation's
// TraceKit replaces it by file.
#ifndef HOSTLIBS_TRACEKIT_QXLOGGER_H_
#define HOSTLIBS_TRACEKIT_QXLOGGER_H_

#include <sstream>

#include "LogMessageLevel.h"

#if defined(_WIN32)
#if defined(TRACEKIT_COMPILING)
#define TRACEKIT_API __declspec(dllexport)
#else
#define TRACEKIT_API __declspec(dllimport)
#endif
#else
#define TRACEKIT_API __attribute__((visibility("default")))
#endif

class TRACEKIT_API QxLogger {
public:
    static QxLogger* GetInstance();
    void Log(LOG_MESSAGE_LEVEL level, std::basic_stringstream<wchar_t>& message);
};

#endif  // HOSTLIBS_TRACEKIT_QXLOGGER_H_
