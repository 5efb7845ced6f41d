#include "temporary_file.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "store_error.h"

namespace arvl_host {

namespace {

constexpr std::size_t kTextChunk = 0x10000;

// Bytes at which the disk is told to begin. It writes beside the copy, and whoever syncs the file waits
// for the rest alone and hears of every error.
constexpr off_t kWriteBehind = 0x800000;

}  // namespace

std::string temporaryName(const std::string &name) {
  return ".arvl-" + sha256Of(name).substr(0, 16) + ".partial";
}

TemporaryFile::TemporaryFile(const Place &to) : to_(to), name_(temporaryName(to.name)) {
  struct stat status;
  do {
    open();
  } while (!isOurs(status));
  // Only a leftover: what has been truncated, the file system writes out when it is closed.
  if (status.st_size > 0 && ftruncate(file_.get(), 0) != 0) {
    giveUp();
  }
}

TemporaryFile::~TemporaryFile() {
  if (file_ && !isCommitted_) {
    unlinkat(to_.folder, name_.c_str(), 0);
  }
}

void TemporaryFile::giveUp() {
  const int error = errno;
  file_.reset();
  failWith(error, "cannot write " + quoted(to_.shown));
}

void TemporaryFile::open() {
  const auto tryToOpen = [this] {
    file_.reset(
        openat(to_.folder, name_.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    return static_cast<bool>(file_);
  };
  // A leftover may be a link, or have the mode of a file that is for reading only.
  if (!tryToOpen() && ((errno != EACCES && errno != ELOOP) ||
                       unlinkat(to_.folder, name_.c_str(), 0) != 0 || !tryToOpen())) {
    giveUp();
  }
  if (flock(file_.get(), LOCK_EX | LOCK_NB) != 0) {
    file_.reset();
    throw StoreError("another transfer is writing " + quoted(to_.shown));
  }
}

// Who had it before may have committed it or taken it away before the lock came to us.
bool TemporaryFile::isOurs(struct stat &opened) const {
  struct stat named;
  return fstat(file_.get(), &opened) == 0 &&
         fstatat(to_.folder, name_.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
         opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
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
  if ((durability == Durability::kEachFile && fsync(file_.get()) != 0) ||
      renameat(to_.folder, name_.c_str(), to_.folder, to_.name.c_str()) != 0) {
    failWith(errno, "cannot write " + quoted(to_.shown));
  }
  isCommitted_ = true;
}

void TextWriter::add(std::string_view text) {
  buffer_ += text;
  if (buffer_.size() >= kTextChunk) {
    flush();
  }
}

void TextWriter::flush() {
  digest_.add(buffer_.data(), buffer_.size());
  file_.write(buffer_.data(), buffer_.size());
  buffer_.clear();
}

std::string TextWriter::finish() {
  flush();
  return digest_.finish();
}

}  // namespace arvl_host
