#include "backup/backup_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace arvl_host {

// Refuses anything but a regular file: reading a FIFO, for example, could block.
UniqueFd openBackupFile(const std::filesystem::path &path) {
  UniqueFd file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file && (errno == EACCES || errno == EPERM)) {
    throw CannotExamine("cannot open " + quoted(path) + ": " + std::strerror(errno));
  }
  struct stat status;
  if (!file || fstat(file.get(), &status) != 0) {
    failWith(errno, "cannot open " + quoted(path));
  }
  if (!S_ISREG(status.st_mode)) {
    throw StoreError(quoted(path) + " is not a file");
  }
  return file;
}

}  // namespace arvl_host
