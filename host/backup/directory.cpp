#include "backup/directory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "files/file_error.h"

namespace fs = std::filesystem;

namespace arvl_host {

UniqueFd openDirectory(const fs::path &path) {
  UniqueFd directory(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory) {
    failWith(errno, "cannot open the directory " + quoted(path));
  }
  return directory;
}

void makeDirectory(const fs::path &path, mode_t mode) {
  if (mkdir(path.c_str(), mode) != 0 && errno != EEXIST) {
    failWith(errno, "cannot create the directory " + quoted(path));
  }
}

void syncDirectory(const fs::path &path) {
  if (fsync(openDirectory(path).get()) != 0) {
    failWith(errno, "cannot sync the directory " + quoted(path));
  }
}

}  // namespace arvl_host
