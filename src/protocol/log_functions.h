// Replaces the log functions of the C library: syslog, and __syslog_chk, which a build with
// _FORTIFY_SOURCE calls. Debian packages are built so.
//
// One source file of a program or of a preloaded object includes this header and defines takeLogLine.
#ifndef ZARN_PROTOCOL_LOG_FUNCTIONS_H_
#define ZARN_PROTOCOL_LOG_FUNCTIONS_H_

#include <syslog.h>

#include <cstdarg>

#include "zarn/visibility.h"

namespace {

__attribute__((format(printf, 2, 0))) void takeLogLine(int priority, const char *format,
                                                       va_list arguments);

}  // namespace

extern "C" ZARN_EXPORT void syslog(int priority, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  takeLogLine(priority, format, arguments);
  va_end(arguments);
}

extern "C" ZARN_EXPORT __attribute__((format(printf, 3, 4))) void __syslog_chk(int priority,
                                                                               int /*flag*/,
                                                                               const char *format,
                                                                               ...) {
  va_list arguments;
  va_start(arguments, format);
  takeLogLine(priority, format, arguments);
  va_end(arguments);
}

#endif  // ZARN_PROTOCOL_LOG_FUNCTIONS_H_
