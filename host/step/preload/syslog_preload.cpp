// Sends the syslog lines of a plug-in to the host. It is loaded ahead of the C library. Without a channel, it
// calls the C library's function.

#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>

#include "protocol/log_functions.h"
#include "step/log_channel.h"

namespace {

using arvl_host::kMaxLogRecord;

// Returns the descriptor of the channel, or -1 if there is none or it was closed.
int channel() {
  struct Channel {
    int fd;
    unsigned long long inode;
  };
  static const Channel inherited = [] {
    const char *fd = std::getenv(arvl_host::kLogChannelVariable);
    const char *inode = std::getenv(arvl_host::kLogChannelInodeVariable);
    return fd != nullptr && inode != nullptr
               ? Channel{std::atoi(fd), std::strtoull(inode, nullptr, 10)}
               : Channel{-1, 0};
  }();
  struct stat status;
  const bool isThere = inherited.fd >= 0 && fstat(inherited.fd, &status) == 0 &&
                       S_ISSOCK(status.st_mode) && status.st_ino == inherited.inode;
  return isThere ? inherited.fd : -1;
}

bool sendRecord(int fd, const char *record, std::size_t size) {
  ssize_t sent = 0;
  do {
    sent = send(fd, record, size, MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  return sent >= 0;
}

// Sends a line with `error` as the value of %m. A short line needs only a little of the stack, because threads
// may have small stacks, and nothing of the heap.
__attribute__((format(printf, 3, 0))) bool sendToHost(int error, int priority, const char *format,
                                                      va_list arguments) {
  const int fd = channel();
  if (fd < 0) {
    return false;
  }
  char brief[1024];
  brief[0] = static_cast<char>(LOG_PRI(priority));
  va_list again;
  va_copy(again, arguments);
  errno = error;
  const int length = std::vsnprintf(brief + 1, sizeof brief - 1, format, again);
  va_end(again);
  if (length < 0) {
    return false;
  }
  const std::size_t size = 1 + static_cast<std::size_t>(length);
  if (size < sizeof brief) {
    return sendRecord(fd, brief, size);
  }
  const std::size_t sizeInMemory = std::min(size + 1, kMaxLogRecord);  // with its NUL
  const std::unique_ptr<char[]> record(new (std::nothrow) char[sizeInMemory]);
  if (record == nullptr) {
    return false;
  }
  record[0] = brief[0];
  errno = error;
  std::vsnprintf(&record[1], sizeInMemory - 1, format, arguments);
  return sendRecord(fd, record.get(), sizeInMemory - 1);
}

__attribute__((format(printf, 2, 0))) void callNext(int priority, const char *format,
                                                    va_list arguments) {
  using Function = void (*)(int, const char *, va_list);
  static const auto next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "vsyslog"));
  if (next != nullptr) {
    next(priority, format, arguments);
  }
}

void takeLogLine(int priority, const char *format, va_list arguments) {
  const int error = errno;
  va_list again;
  va_copy(again, arguments);
  if (!sendToHost(error, priority, format, arguments)) {
    errno = error;
    callNext(priority, format, again);
  }
  va_end(again);
  errno = error;
}

}  // namespace

// A plug-in may also call these.
extern "C" ZARN_EXPORT void vsyslog(int priority, const char *format, va_list arguments) {
  takeLogLine(priority, format, arguments);
}

extern "C" ZARN_EXPORT __attribute__((format(printf, 3, 0))) void __vsyslog_chk(int priority,
                                                                                int /*flag*/,
                                                                                const char *format,
                                                                                va_list arguments) {
  takeLogLine(priority, format, arguments);
}
