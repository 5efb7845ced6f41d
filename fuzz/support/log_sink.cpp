#include "support/log_sink.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "support/check.h"
#include "zarn/visibility.h"

namespace arvl_fuzz {

namespace {

unsigned lines = 0;
char last[512];

}  // namespace

void LogSink::clear() {
  lines = 0;
  last[0] = '\0';
}

unsigned LogSink::lineCount() {
  return lines;
}

std::string LogSink::lastLine() {
  const char *colon = std::strchr(last, ':');
  if (colon == nullptr) {
    return std::string();
  }
  const char *message = std::strchr(colon, ' ');
  FUZZ_CHECK(message != nullptr);
  return std::string(static_cast<const char *>(last), colon + 1) + message;
}

}  // namespace arvl_fuzz

extern "C" ZARN_EXPORT void syslog(int priority, const char *format, ...) {
  FUZZ_CHECK(priority == LOG_ERR);
  FUZZ_CHECK(std::strncmp(format, "%s:%d ", 6) == 0);
  va_list arguments;
  va_start(arguments, format);
  FUZZ_CHECK(std::vsnprintf(arvl_fuzz::last, sizeof arvl_fuzz::last, format, arguments) > 0);
  va_end(arguments);
  ++arvl_fuzz::lines;
}
