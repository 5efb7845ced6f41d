#include "support/log_sink.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "protocol/log_functions.h"
#include "support/check.h"

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

namespace {

void takeLogLine(int priority, const char *format, va_list arguments) {
  FUZZ_CHECK(priority == LOG_ERR);
  FUZZ_CHECK(std::strncmp(format, "%s:%d ", 6) == 0);
  FUZZ_CHECK(std::vsnprintf(arvl_fuzz::last, sizeof arvl_fuzz::last, format, arguments) > 0);
  ++arvl_fuzz::lines;
}

}  // namespace
