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

constexpr std::size_t kChunk = 0x40000;  // bytes that are copied at once

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

std::string readLink(int link, const std::string &shown) {
  std::string target(4097, '\0');
  const ssize_t size = readlinkat(link, "", target.data(), target.size());
  if (size < 0) {
    fail("cannot read the link " + quoted(shown));
  }
  target.resize(static_cast<std::size_t>(size));
  return target;
}

// By way of a temporary name, as a file: it replaces what is there.
void copyLink(int link, const std::string &shown, const Place &to) {
  const std::string target = readLink(link, shown);
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

// Opens for reading what has been examined, and no other. A file that would block is an error in place
// of a wait: some below /proc do.
UniqueFd reopen(int path, int flags, const std::string &shown) {
  UniqueFd fd(open(("/proc/self/fd/" + std::to_string(path)).c_str(),
                   flags | O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!fd) {
    fail("cannot open " + quoted(shown));
  }
  return fd;
}

std::string below(std::string folder, const std::string &name) {
  folder += '/';
  folder += name;
  return folder;
}

UniqueFd openEntry(const Place &place) {
  UniqueFd path(openat(place.folder, place.name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!path) {
    fail("cannot find " + quoted(place.shown));
  }
  return path;
}

bool isSame(const struct stat &a, const struct stat &b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

}  // namespace

void Copier::copy(int path, const std::string &shown, const Place &to) {
  checkCanceled();
  const struct stat status = examine(path, shown);
  switch (status.st_mode & S_IFMT) {
    case S_IFREG:
      copyFile(path, shown, status, to);
      return;
    case S_IFLNK:
      copyLink(path, shown, to);
      return;
    case S_IFDIR:
      copyTree(path, shown, status, to);
      return;
    default:
      throw StoreError(quoted(shown) +
                       " is neither a file, a folder nor a link, and is not copied");
  }
}

void Copier::move(const Place &from, const Place &to) {
  checkCanceled();
  if (renameat(from.folder, from.name.c_str(), to.folder, to.name.c_str()) == 0) {
    return;
  }
  // Another file system, or a folder to merge into: those are left to the copy.
  if (errno != EXDEV && errno != ENOTEMPTY && errno != EEXIST) {
    fail("cannot move " + quoted(from.shown) + " to " + quoted(to.shown));
  }
  isMoving_ = true;
  copy(openEntry(from).get(), from.shown, to);
  // What cannot be removed stays: it has been delivered.
  if (unlinkat(from.folder, from.name.c_str(), 0) != 0 && errno == EISDIR) {
    unlinkat(from.folder, from.name.c_str(), AT_REMOVEDIR);
  }
}

void Copier::copyFile(int path, const std::string &shown, const struct stat &status,
                      const Place &to) {
  const UniqueFd file = reopen(path, 0, shown);
  TemporaryFile temporary(to);
  copyBytes(file.get(), shown, temporary.fd(), to.shown);
  copyMetadata(status, temporary.fd(), to.shown);
  temporary.commit();
}

void Copier::copyTree(int path, const std::string &shown, const struct stat &status,
                      const Place &to) {
  if (root_ && isSame(status, *root_)) {
    throw StoreError("cannot copy the folder " + quoted(shown) + " into itself");
  }
  const UniqueFd source = reopen(path, O_DIRECTORY, shown);
  const bool isMade = mkdirat(to.folder, to.name.c_str(), 0700) == 0;
  if (!isMade && errno != EEXIST) {
    fail("cannot make the folder " + quoted(to.shown));
  }
  const UniqueFd target(
      openat(to.folder, to.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!target) {
    fail("cannot write into " + quoted(to.shown));
  }
  if (!root_) {
    root_ = examine(target.get(), to.shown);
    if (isSame(status, *root_)) {
      throw StoreError("cannot copy the folder " + quoted(shown) + " onto itself");
    }
  }
  copyFolder(source.get(), shown, target.get(), to.shown);
  if (isMade) {
    copyMetadata(status, target.get(), to.shown);
  }
}

void Copier::copyFolder(int from, const std::string &shown, int to, const std::string &shownTo) {
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
    if (name == "." || name == "..") {
      continue;
    }
    const Place source = {from, name, below(shown, name)};
    const Place target = {to, name, below(shownTo, name)};
    if (isMoving_) {
      move(source, target);
    } else {
      copy(openEntry(source).get(), source.shown, target);
    }
  }
}

void Copier::copyBytes(int from, const std::string &shown, int to, const std::string &shownTo) {
  buffer_.resize(kChunk);
  for (;;) {
    checkCanceled();
    const ssize_t size = read(from, buffer_.data(), buffer_.size());
    if (size == 0) {
      return;
    }
    if (size < 0 && errno != EINTR) {
      fail("cannot read " + quoted(shown));
    }
    if (size > 0) {
      writeAll(to, buffer_.data(), static_cast<std::size_t>(size), shownTo);
    }
  }
}

void Copier::checkCanceled() const {
  if (canceled_) {
    throw StoreError("the transfer has been canceled");
  }
}

}  // namespace arvl_host
