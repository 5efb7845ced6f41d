// The logging macro. Every log line of the library has priority LOG_ERR and starts with the name of the
// source file and the line of the logging statement.
//
// The macro calls syslog directly, so that the compiler checks each format against its arguments and a
// process can interpose syslog to receive the lines, see protocol/log_functions.h. Keep each use on one physical
// line: compilers disagree about __LINE__ in a wrapped call. __extension__ allows "%m", a conversion of
// syslog.
#ifndef ZARN_UTIL_LOG_H_
#define ZARN_UTIL_LOG_H_

#include <syslog.h>

#define ARVL_LOG_ERROR(format, ...)                               \
  __extension__ ::syslog(LOG_ERR, "%s:%d " format, __FILE_NAME__, \
                         __LINE__ __VA_OPT__(, ) __VA_ARGS__)

// Logs and returns false.
#define ARVL_LOG_FALSE(...) (ARVL_LOG_ERROR(__VA_ARGS__), false)

#endif  // ZARN_UTIL_LOG_H_
