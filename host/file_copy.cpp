#include "file_copy.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "store.h"
#include "trace/trace_text.h"

namespace arvl_host {

void failWith(int error, const std::string &what) {
  throw StoreError(what + ": " + std::strerror(error));
}

namespace {

[[noreturn]] void fail(const std::string &what) {
  failWith(errno, what);
}

std::string quoted(const std::string &shown) {
  return "\"" + visibleText(shown) + "\"";
}

// A name beside the target that nobody else uses, taken away again unless the file is committed.
class TemporaryFile {
 public:
  explicit TemporaryFile(const Place &to) : to_(to) {
    std::random_device random;
    for (int attempt = 0; attempt < 100; ++attempt) {
      name_ = ".arvl-" + std::to_string(random()) + ".partial";
      file_.reset(openat(to.folder, name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
      if (file_ || errno != EEXIST) {
        break;
      }
    }
    if (!file_) {
      name_.clear();
      fail("cannot write " + quoted(to.shown));
    }
  }

  ~TemporaryFile() {
    if (!name_.empty()) {
      unlinkat(to_.folder, name_.c_str(), 0);
    }
  }

  TemporaryFile(const TemporaryFile &) = delete;
  TemporaryFile &operator=(const TemporaryFile &) = delete;

  int fd() const { return file_.get(); }

  void commit() {
    if (fsync(file_.get()) != 0 ||
        renameat(to_.folder, name_.c_str(), to_.folder, to_.name.c_str()) != 0) {
      fail("cannot write " + quoted(to_.shown));
    }
    name_.clear();
  }

 private:
  const Place &to_;
  std::string name_;
  UniqueFd file_;
};

void writeAll(int fd, const char *data, std::size_t size, const std::string &shown) {
  while (size > 0) {
    const ssize_t written = write(fd, data, size);
    if (written < 0 && errno != EINTR) {
      fail("cannot write " + quoted(shown));
    }
    if (written > 0) {
      data += written;
      size -= static_cast<std::size_t>(written);
    }
  }
}

void copyBytes(int from, const std::string &shown, int to, const std::string &shownTo) {
  std::vector<char> buffer(256 * 1024);
  for (;;) {
    const ssize_t size = read(from, buffer.data(), buffer.size());
    if (size == 0) {
      return;
    }
    if (size < 0 && errno != EINTR) {
      fail("cannot read " + quoted(shown));
    }
    if (size > 0) {
      writeAll(to, buffer.data(), static_cast<std::size_t>(size), shownTo);
    }
  }
}

void copyMetadata(const struct stat &status, int to, const std::string &shown) {
  const timespec times[2] = {status.st_atim, status.st_mtim};
  if (fchmod(to, status.st_mode & 07777) != 0 || futimens(to, times) != 0) {
    fail("cannot write " + quoted(shown));
  }
}

struct stat examine(int fd, const std::string &shown) {
  struct stat status;
  if (fstat(fd, &status) != 0) {
    fail("cannot examine " + quoted(shown));
  }
  return status;
}

std::string readLink(const Place &from) {
  std::string target(4097, '\0');
  const ssize_t size = readlinkat(from.folder, from.name.c_str(), target.data(), target.size());
  if (size < 0) {
    fail("cannot read the link " + quoted(from.shown));
  }
  target.resize(static_cast<std::size_t>(size));
  return target;
}

// A link is made under its own name only where nothing is there yet; else it replaces what there is, as
// a file does.
void copyLink(const Place &from, const Place &to) {
  const std::string target = readLink(from);
  const std::string temporary = ".arvl-link-" + std::to_string(std::random_device()()) + ".partial";
  if (symlinkat(target.c_str(), to.folder, temporary.c_str()) != 0) {
    fail("cannot write " + quoted(to.shown));
  }
  if (renameat(to.folder, temporary.c_str(), to.folder, to.name.c_str()) != 0) {
    const int error = errno;
    unlinkat(to.folder, temporary.c_str(), 0);
    failWith(error, "cannot write " + quoted(to.shown));
  }
}

void copyTree(int path, const Place &from, const struct stat &status, const Place &to) {
  if (mkdirat(to.folder, to.name.c_str(), 0700) != 0 && errno != EEXIST) {
    fail("cannot make the folder " + quoted(to.shown));
  }
  UniqueFd target(
      openat(to.folder, to.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!target) {
    fail("cannot write into " + quoted(to.shown));
  }
  const UniqueFd source = reopen(path, O_RDONLY | O_DIRECTORY, from.shown);
  copyFolder(source.get(), from.shown, target.get(), to.shown);
  copyMetadata(status, target.get(), to.shown);
}

}  // namespace

UniqueFd reopen(int path, int flags, const std::string &shown) {
  UniqueFd fd(open(("/proc/self/fd/" + std::to_string(path)).c_str(), flags | O_CLOEXEC));
  if (!fd) {
    fail("cannot open " + quoted(shown));
  }
  return fd;
}

void copyFile(int file, const std::string &shown, const Place &to) {
  const struct stat status = examine(file, shown);
  TemporaryFile temporary(to);
  copyBytes(file, shown, temporary.fd(), to.shown);
  copyMetadata(status, temporary.fd(), to.shown);
  temporary.commit();
}

void copyEntry(const Place &from, const Place &to) {
  const UniqueFd path(openat(from.folder, from.name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!path) {
    fail("cannot find " + quoted(from.shown));
  }
  const struct stat status = examine(path.get(), from.shown);
  switch (status.st_mode & S_IFMT) {
    case S_IFREG:
      copyFile(reopen(path.get(), O_RDONLY, from.shown).get(), from.shown, to);
      return;
    case S_IFLNK:
      copyLink(from, to);
      return;
    case S_IFDIR:
      copyTree(path.get(), from, status, to);
      return;
    default:
      throw StoreError(quoted(from.shown) +
                       " is neither a file, a folder nor a link, and is not copied");
  }
}

void copyFolder(int from, const std::string &shown, int to, const std::string &shownTo) {
  struct Closer {
    void operator()(DIR *dir) const { closedir(dir); }
  };
  UniqueFd own(openat(from, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));  // with an offset of its own
  const std::unique_ptr<DIR, Closer> dir(own ? fdopendir(own.get()) : nullptr);
  if (dir == nullptr) {
    fail("cannot read the folder " + quoted(shown));
  }
  own.release();
  for (;;) {
    errno = 0;
    const dirent *entry = readdir(dir.get());
    if (entry == nullptr) {
      if (errno != 0) {
        fail("cannot read the folder " + quoted(shown));
      }
      return;
    }
    const std::string name = entry->d_name;
    if (name != "." && name != "..") {
      copyEntry({from, name, shown + "/" + name}, {to, name, shownTo + "/" + name});
    }
  }
}

}  // namespace arvl_host
