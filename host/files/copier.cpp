#include "files/copier.h"

#include <fcntl.h>
#include <stdio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "files/file_type.h"
#include "files/folder_reader.h"
#include "files/read_lease.h"
#include "files/remove_tree.h"
#include "files/temporary_file.h"

namespace arvl_host {

namespace {

[[noreturn]] void fail(const std::string &what) {
  failWith(errno, what);
}

// The source of a copy or a move no longer exists.
class Vanished : public StoreError {
 public:
  explicit Vanished(const std::string &what) : StoreError(what + ": " + std::strerror(ENOENT)) {}
};

constexpr std::size_t kChunk = 0x40000;  // bytes of one read

constexpr std::int64_t kStatBlock = 512;  // bytes of a block in st_blocks

// Ignores errors: the error that ended the copy is the one to report.
void removePartialTree(const Place &place) {
  try {
    removeTree(place);
  } catch (const StoreError &) {
  }
}

bool hasChanged(const struct stat &before, const struct stat &after) {
  return before.st_size != after.st_size || before.st_mtim.tv_sec != after.st_mtim.tv_sec ||
         before.st_mtim.tv_nsec != after.st_mtim.tv_nsec;
}

bool isSame(const struct stat &a, const struct stat &b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

struct stat examine(int fd, const std::string &shown) {
  struct stat status;
  if (fstat(fd, &status) != 0) {
    fail("cannot examine " + quoted(shown));
  }
  return status;
}

// Drops set-user-ID and set-group-ID if the copy has another owner: a program must not run as another user.
mode_t deliveredMode(const struct stat &status, int to, const std::string &shown) {
  constexpr mode_t kRunAs = S_ISUID | S_ISGID;
  const mode_t mode = status.st_mode & 07777;
  if ((mode & kRunAs) == 0) {
    return mode;
  }
  const struct stat own = examine(to, shown);
  return own.st_uid == status.st_uid && own.st_gid == status.st_gid ? mode : mode & ~kRunAs;
}

void copyMetadata(const struct stat &status, int to, const std::string &shown) {
  const timespec times[2] = {status.st_atim, status.st_mtim};
  if (fchmod(to, deliveredMode(status, to, shown)) != 0) {
    fail("cannot set the mode of " + quoted(shown));
  }
  if (futimens(to, times) != 0) {
    fail("cannot set the times of " + quoted(shown));
  }
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

// Opens the entry of an O_PATH descriptor for reading. O_NONBLOCK makes a read that would wait fail, as of some
// files below /proc.
UniqueFd reopen(int path, int flags, const std::string &shown) {
  UniqueFd fd(open(("/proc/self/fd/" + std::to_string(path)).c_str(),
                   flags | O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!fd) {
    fail("cannot open " + quoted(shown));
  }
  return fd;
}

std::string below(std::string directory, const std::string &name) {
  directory += '/';
  directory += name;
  return directory;
}

struct stat examine(const Place &place) {
  struct stat status;
  if (fstatat(place.directory, place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    fail("cannot examine " + quoted(place.shown));
  }
  return status;
}

UniqueFd openSource(const Place &place) {
  UniqueFd path(openat(place.directory, place.name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!path && errno == ENOENT) {
    throw Vanished("cannot find " + quoted(place.shown));
  }
  if (!path) {
    fail("cannot open " + quoted(place.shown));
  }
  return path;
}

// Returns whether the directory is the top of the tree or lies below it.
bool isWithin(int directory, const struct stat &tree) {
  UniqueFd at(openat(directory, ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  struct stat status;
  struct stat last = {};
  while (at && fstat(at.get(), &status) == 0 &&
         !isSame(status, last)) {  // the root is its own parent
    if (isSame(status, tree)) {
      return true;
    }
    last = status;
    at.reset(openat(at.get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
  }
  return false;
}

}  // namespace

void Copier::copy(int path, const std::string &shown, const Place &to) {
  checkCanceled();
  struct stat status = examine(path, shown);
  if (options_.watcher != nullptr && fileTypeOf(status.st_mode)) {
    options_.watcher->onEntry(shown, status);
  }
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
                       " is neither a file, a directory nor a link, and is not copied");
  }
}

// Returns false if the entry has to be copied: a directory, an entry that cannot be renamed, and a file that
// another process could still write to, through a descriptor or another name.
bool Copier::moveByName(const struct stat &status, int path, const Place &from, const Place &to) {
  const auto rename = [&] {
    return renameat(from.directory, from.name.c_str(), to.directory, to.name.c_str()) == 0;
  };
  if (S_ISLNK(status.st_mode)) {
    return rename();
  }
  if (!S_ISREG(status.st_mode)) {
    return false;
  }
  const ReadLease lease(path);
  const bool isMoved = status.st_nlink == 1 && lease.isHeld() && rename();
  // A process that was opening the file during the rename gets it when the lease ends.
  const bool hasWriter = lease.isRefusedByWriter() || (isMoved && !lease.isHeld());
  if (hasWriter && options_.watcher != nullptr) {
    options_.watcher->onOpenForWriting(from.shown);
  }
  return isMoved && !hasWriter;
}

// Throws if the tree holds an entry that cannot be moved.
void Copier::checkMovable(const Place &from, const std::string &shownTo) const {
  checkCanceled();
  const UniqueFd source = openSource(from);
  const struct stat status = examine(source.get(), from.shown);
  if (!fileTypeOf(status.st_mode)) {
    throw StoreError(quoted(from.shown) +
                     " is neither a file, a directory nor a link, and is not moved");
  }
  if (shownTo.size() - rootLength_ > options_.maxBelow) {
    throw PathTooLong(shownTo);
  }
  if (!S_ISDIR(status.st_mode)) {
    return;
  }
  FolderReader reader(source.get(), from.shown);
  while (const char *name = reader.next()) {
    try {
      checkMovable({source.get(), name, below(from.shown, name)}, below(shownTo, name));
    } catch (const Vanished &) {
      // move() skips it as well.
    }
  }
}

void Copier::move(const Place &from, const Place &to) {
  rootLength_ = to.shown.size();
  checkMovable(from, to.shown);
  const UniqueFd source = openSource(from);
  const struct stat status = examine(source.get(), from.shown);
  if (S_ISDIR(status.st_mode) && isWithin(to.directory, status)) {
    throw StoreError("cannot move the directory " + quoted(from.shown) + " into itself");
  }
  isMoving_ = true;
  moveEntry(from, to);
}

void Copier::moveEntry(const Place &from, const Place &to) {
  checkCanceled();
  const UniqueFd entry = openSource(from);
  const struct stat status = examine(entry.get(), from.shown);
  if (moveByName(status, entry.get(), from, to)) {
    if (options_.watcher != nullptr) {
      options_.watcher->onMoved(examine(to));
    }
    return;
  }
  copy(entry.get(), from.shown, to);
  // A source that cannot be removed stays: its copy is complete.
  if (unlinkat(from.directory, from.name.c_str(), 0) != 0 && errno == EISDIR) {
    unlinkat(from.directory, from.name.c_str(), AT_REMOVEDIR);
  }
}

void Copier::copyFile(int path, const std::string &shown, const struct stat &status,
                      const Place &to) {
  const UniqueFd file = reopen(path, 0, shown);
  const struct stat before = examine(file.get(), shown);
  TemporaryFile temporary(to);
  const std::string sha256 = copyBytes(file.get(), shown, status, temporary);
  copyMetadata(status, temporary.fd(), to.shown);
  if (options_.watcher != nullptr) {
    if (hasChanged(before, examine(file.get(), shown))) {
      options_.watcher->onChanged(shown);
    }
    options_.watcher->onFile(shown, sha256);
  }
  temporary.commit(options_.durability);
  if (options_.watcher != nullptr) {
    options_.watcher->onStored(examine(temporary.fd(), to.shown), sha256);
  }
}

// Creates the link under a temporary name and renames it, to replace an existing entry.
void Copier::copyLink(int link, const std::string &shown, const Place &to) {
  const std::string target = readLink(link, shown);
  if (options_.watcher != nullptr) {
    options_.watcher->onLink(shown, target);
  }
  const std::string temporary = temporaryName(to.name);
  removeLeftover(to, temporary);
  if (symlinkat(target.c_str(), to.directory, temporary.c_str()) != 0) {
    fail("cannot create " + quoted(to.shown));
  }
  if (renameat(to.directory, temporary.c_str(), to.directory, to.name.c_str()) != 0) {
    const int error = errno;
    unlinkat(to.directory, temporary.c_str(), 0);
    failWith(error, "cannot write " + quoted(to.shown));
  }
}

void Copier::copyTree(int path, const std::string &shown, const struct stat &status,
                      const Place &to) {
  if (root_ && isSame(status, *root_)) {
    throw StoreError("cannot copy the directory " + quoted(shown) + " into itself");
  }
  if (isMoving_ &&
      (status.st_mode & S_IRWXU) != S_IRWXU) {  // else its entries could not be removed
    chmod(("/proc/self/fd/" + std::to_string(path)).c_str(), (status.st_mode & 07777) | S_IRWXU);
  }
  const UniqueFd source = reopen(path, O_DIRECTORY, shown);
  const bool isCreated = mkdirat(to.directory, to.name.c_str(), 0700) == 0;
  if (!isCreated && errno != EEXIST) {
    fail("cannot create the directory " + quoted(to.shown));
  }
  const UniqueFd target(
      openat(to.directory, to.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!target) {
    fail("cannot write into " + quoted(to.shown));
  }
  const bool isTop = !root_;
  if (isTop) {
    root_ = examine(target.get(), to.shown);
    rootLength_ = to.shown.size();
    if (isSame(status, *root_)) {
      throw StoreError("cannot copy the directory " + quoted(shown) + " onto itself");
    }
  }
  try {
    copyDirectory(source.get(), shown, target.get(), to.shown);
  } catch (const StoreError &) {
    if (isTop && isCreated && !isMoving_ && !canceled_) {
      removePartialTree(to);
    }
    throw;
  }
  if (isCreated) {
    copyMetadata(status, target.get(), to.shown);
  }
}

void Copier::copyDirectory(int from, const std::string &shown, int to, const std::string &shownTo) {
  FolderReader reader(from, shown);
  std::uint64_t entries = 0;
  while (const char *name = reader.next()) {
    const Place source = {from, name, below(shown, name)};
    const Place target = {to, name, below(shownTo, name)};
    try {
      copyEntry(source, target);
      ++entries;
    } catch (const Vanished &) {  // a running application may remove its files
      if (options_.watcher != nullptr) {
        options_.watcher->onVanished(source.shown);
      }
    }
  }
  if (options_.watcher != nullptr) {
    options_.watcher->onFolderEnd(shown, entries);
  }
}

void Copier::copyEntry(const Place &from, const Place &to) {
  if (to.shown.size() - rootLength_ > options_.maxBelow) {
    throw PathTooLong(to.shown);
  }
  if (isMoving_) {
    moveEntry(from, to);
  } else {
    copy(openSource(from).get(), from.shown, to);
  }
}

std::string Copier::copyBytes(int from, const std::string &shown, const struct stat &status,
                              TemporaryFile &to) {
  const bool hasHoles = status.st_blocks * kStatBlock < status.st_size;
  buffer_.resize(kChunk);
  digest_.reset();
  if (options_.watcher != nullptr) {
    digest_.emplace();
  }
  for (;;) {
    checkCanceled();
    const std::size_t wanted =
        hasHoles ? copyHole(from, shown, status.st_size, to) : buffer_.size();
    const ssize_t size = read(from, buffer_.data(), wanted);
    if (size == 0) {
      return digest_ ? digest_->finish() : "";
    }
    if (size < 0 && errno != EINTR) {
      fail("cannot read " + quoted(shown));
    }
    if (size > 0) {
      to.write(buffer_.data(), static_cast<std::size_t>(size));
      count(buffer_.data(), static_cast<std::size_t>(size));
    }
  }
}

// Skips the hole at the current offset, which may be empty, up to the next data or the original end of the file.
// Returns the number of bytes to read next, which ends before the next hole.
std::size_t Copier::copyHole(int from, const std::string &shown, std::int64_t end,
                             TemporaryFile &to) {
  static const std::vector<char> zeros(kChunk);
  const off_t begin = lseek(from, 0, SEEK_CUR);
  off_t data = lseek(from, begin, SEEK_DATA);
  if (data < 0 && errno == ENXIO) {  // none left
    data = std::max<off_t>(begin, end);
  }
  if (begin < 0 || data < 0) {
    fail("cannot read " + quoted(shown));
  }
  to.skip(data - begin);
  for (off_t left = data - begin; left > 0;) {
    checkCanceled();
    const off_t size = std::min<off_t>(left, static_cast<off_t>(zeros.size()));
    count(zeros.data(), static_cast<std::size_t>(size));
    left -= size;
  }
  const off_t next = lseek(from, data, SEEK_HOLE);
  if (lseek(from, data, SEEK_SET) < 0) {
    fail("cannot read " + quoted(shown));
  }
  return next > data ? std::min(static_cast<std::size_t>(next - data), kChunk) : kChunk;
}

void Copier::count(const char *data, std::size_t size) {
  if (digest_) {
    digest_->add(data, size);
    options_.watcher->onBytes(size);
  }
}

void Copier::checkCanceled() const {
  if (canceled_) {
    throw StoreError("the transfer has been canceled");
  }
}

}  // namespace arvl_host
