// Loaded into a plug-in ahead of the C library: sends its syslog lines to the host. Where there is no
// channel, or no longer one, the C library's own function has them.

#include <dlfcn.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "log_channel.h"

#define ARVL_PRELOAD extern "C" __attribute__((visibility("default")))

namespace {

using arvl_host::kMaxLogRecord;

int channel() {
  static const int fd = [] {
    const char *number = std::getenv(arvl_host::kLogChannelVariable);
    return number != nullptr ? std::atoi(number) : -1;
  }();
  return fd;
}

bool sendToHost(int priority, const char *format, va_list arguments) {
  thread_local char record[kMaxLogRecord];
  record[0] = static_cast<char>(priority & LOG_PRIMASK);
  const int size = std::vsnprintf(record + 1, sizeof record - 1, format, arguments);  // knows %m
  if (channel() < 0 || size < 0) {
    return false;
  }
  const std::size_t text = std::strlen(record + 1);
  ssize_t sent = 0;
  do {
    sent = send(channel(), record, text + 1, MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  return sent >= 0;
}

void callNext(int priority, const char *format, va_list arguments) {
  using Function = void (*)(int, const char *, va_list);
  static const auto next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "vsyslog"));
  if (next != nullptr) {
    next(priority, format, arguments);
  }
}

void log(int priority, const char *format, va_list arguments) {
  const int error = errno;
  va_list again;
  va_copy(again, arguments);
  if (!sendToHost(priority, format, arguments)) {
    errno = error;
    callNext(priority, format, again);
  }
  va_end(again);
  errno = error;
}

}  // namespace

ARVL_PRELOAD void vsyslog(int priority, const char *format, va_list arguments) {
  log(priority, format, arguments);
}

ARVL_PRELOAD void syslog(int priority, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  log(priority, format, arguments);
  va_end(arguments);
}

// What programs built with _FORTIFY_SOURCE call in their place.
ARVL_PRELOAD void __vsyslog_chk(int priority, int /*flag*/, const char *format, va_list arguments) {
  log(priority, format, arguments);
}

ARVL_PRELOAD void __syslog_chk(int priority, int /*flag*/, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  log(priority, format, arguments);
  va_end(arguments);
}
