// Log levels shared by the host installation's two logging libraries (CorvusUtil, TraceKit).
#ifndef HOSTLIBS_LOG_MESSAGE_LEVEL_H_
#define HOSTLIBS_LOG_MESSAGE_LEVEL_H_

enum LOG_MESSAGE_LEVEL {
    LOG_MESSAGE_TRACE = 0,
    LOG_MESSAGE_DEBUG = 1,
    LOG_MESSAGE_WARN = 2,
    LOG_MESSAGE_INFO = 3,
    LOG_MESSAGE_ERROR = 4
};

#endif  // HOSTLIBS_LOG_MESSAGE_LEVEL_H_
