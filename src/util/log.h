// The one logging macro. Every diagnostic of the library is a line at LOG_ERR that opens with the
// name of the source file and the line of the logging statement.
//
// The macro expands to the call of syslog itself, so that the compiler checks each format against
// its arguments and a process that wants the lines for itself can interpose it, see log_functions.h.
// Keep each use on one physical line: for a wrapped call the compilers disagree about __LINE__.
// The extension in it is "%m", syslog's own conversion.
#ifndef ZARN_UTIL_LOG_H_
#define ZARN_UTIL_LOG_H_

#include <syslog.h>

#define ARVL_LOG_ERROR(format, ...)                               \
  __extension__ ::syslog(LOG_ERR, "%s:%d " format, __FILE_NAME__, \
                         __LINE__ __VA_OPT__(, ) __VA_ARGS__)

// Logs and yields false, for functions that report failure that way.
#define ARVL_LOG_FALSE(...) (ARVL_LOG_ERROR(__VA_ARGS__), false)

#endif  // ZARN_UTIL_LOG_H_
