// Preloaded into the host: removes an entry named "vanishing" before it is opened.
#include <fcntl.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>

extern "C" __attribute__((visibility("default"))) int openat(int folder, const char *path,
                                                             int flags, ...) {
  mode_t mode = 0;
  if ((flags & (O_CREAT | O_TMPFILE)) != 0) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    va_end(arguments);
  }
  if (strcmp(path, "vanishing") == 0) {
    unlinkat(folder, path, 0);
  }
  return static_cast<int>(syscall(SYS_openat, folder, path, flags, mode));
}
