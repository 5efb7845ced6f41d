#include "files/temporary_file.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "files/file_error.h"

namespace arvl_host {

namespace {

constexpr std::size_t kTextChunk = 0x10000;

// After this many bytes, the kernel is asked to write them to disk during the copy. A later sync then waits for
// the rest only, and still reports every error.
constexpr off_t kWriteBehind = 0x800000;

// Returns 0 or the error, EWOULDBLOCK if another process holds the lock.
int tryToLock(int file) {
  return flock(file, LOCK_EX | LOCK_NB) == 0 ? 0 : errno;
}

[[noreturn]] void failAsBusy(const Place &place) {
  throw StoreError("another transfer is writing " + quoted(place.shown));
}

bool hasName(int file, const Place &place, const std::string &name) {
  struct stat opened;
  struct stat named;
  return fstat(file, &opened) == 0 &&
         fstatat(place.directory, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
         opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

// Opens only a regular file: opening a device or a FIFO may have side effects.
UniqueFd openRegular(int directory, const std::string &name) {
  struct stat status;
  if (fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
      !S_ISREG(status.st_mode)) {
    return {};
  }
  return UniqueFd(openat(directory, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

}  // namespace

std::string temporaryName(const std::string &name) {
  return ".arvl-" + sha256Of(name).substr(0, 16) + ".partial";
}

void removeLeftover(const Place &place, const std::string &name) {
  const std::string shown = place.shown.substr(0, place.shown.rfind('/') + 1) + name;
  const UniqueFd file = openRegular(place.directory, name);
  const int error = file ? tryToLock(file.get()) : 0;
  if (error == EWOULDBLOCK) {
    failAsBusy(place);
  }
  if (error != 0) {
    failWith(error, "cannot lock the leftover " + quoted(shown));
  }
  if (file && !hasName(file.get(), place, name)) {
    return;  // the previous lock holder has renamed or removed the file
  }
  if (unlinkat(place.directory, name.c_str(), 0) != 0 && errno != ENOENT) {
    failWith(errno, "cannot remove the leftover " + quoted(shown));
  }
}

TemporaryFile::TemporaryFile(const Place &to) : to_(to), name_(temporaryName(to.name)) {
  while (!create()) {
    removeLeftover(to_, name_);
  }
}

TemporaryFile::~TemporaryFile() {
  if (file_ && !isCommitted_ && isOurs()) {
    unlinkat(to_.directory, name_.c_str(), 0);
  }
}

// Returns false if the temporary name is in use.
bool TemporaryFile::create() {
  file_.reset(openat(to_.directory, name_.c_str(),
                     O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file_ && errno == EEXIST) {
    return false;
  }
  if (!file_) {
    failWith(errno, "cannot create " + quoted(to_.shown));
  }
  const int error = tryToLock(file_.get());
  if (error == EWOULDBLOCK) {  // another transfer is removing it as a leftover
    failAsBusy(to_);
  }
  if (error != 0) {
    unlinkat(to_.directory, name_.c_str(), 0);
    failWith(error, "cannot lock " + quoted(to_.shown));
  }
  return isOurs();
}

// Another transfer may have removed the file as a leftover before it was locked.
bool TemporaryFile::isOurs() const {
  return hasName(file_.get(), to_, name_);
}

void TemporaryFile::write(const char *data, std::size_t size) {
  while (size > 0) {
    const ssize_t written = ::write(file_.get(), data, size);
    if (written < 0 && errno != EINTR) {
      failWith(errno, "cannot write " + quoted(to_.shown));
    }
    if (written > 0) {
      data += written;
      size -= static_cast<std::size_t>(written);
      size_ += written;
    }
  }
  if (size_ - begun_ >= kWriteBehind) {
    sync_file_range(file_.get(), begun_, size_ - begun_, SYNC_FILE_RANGE_WRITE);
    begun_ = size_;
  }
}

void TemporaryFile::skip(off_t size) {
  if (size == 0) {
    return;
  }
  size_ += size;
  if (lseek(file_.get(), size, SEEK_CUR) < 0 || ftruncate(file_.get(), size_) != 0) {
    failWith(errno, "cannot write " + quoted(to_.shown));
  }
}

void TemporaryFile::commit(Durability durability) {
  if (durability == Durability::kEachFile && fsync(file_.get()) != 0) {
    failWith(errno, "cannot write " + quoted(to_.shown));
  }
  if (!isOurs()) {
    failAsBusy(to_);
  }
  if (renameat(to_.directory, name_.c_str(), to_.directory, to_.name.c_str()) != 0) {
    failWith(errno, "cannot write " + quoted(to_.shown));
  }
  isCommitted_ = true;
}

void TextWriter::add(std::string_view text) {
  if (buffer_.size() + text.size() < kTextChunk) {
    buffer_ += text;
    return;
  }
  flush();
  write(text);
}

void TextWriter::flush() {
  write(buffer_);
  buffer_.clear();
}

void TextWriter::write(std::string_view text) {
  digest_.add(text.data(), text.size());
  file_.write(text.data(), text.size());
}

std::string TextWriter::finish() {
  flush();
  return digest_.finish();
}

}  // namespace arvl_host
