#include "app/dir_lock.h"

#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>

namespace fs = std::filesystem;

namespace notes {
namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds kPollInterval(10);
constexpr std::chrono::milliseconds kNoPatience(0);

bool tryLock(const Fd &fd, DirLock::Kind kind, const fs::path &directory) {
  const int operation = kind == DirLock::Kind::kShared ? LOCK_SH : LOCK_EX;
  if (::flock(fd.get(), operation | LOCK_NB) == 0) {
    return true;
  }
  if (errno != EWOULDBLOCK && errno != EINTR) {
    throwErrno(directory);
  }
  return false;
}

// The name may refer to another directory since it was opened.
bool isStillNamed(const Fd &fd, const fs::path &directory) {
  struct stat held = {};
  struct stat named = {};
  return ::fstat(fd.get(), &held) == 0 && ::lstat(directory.c_str(), &named) == 0 &&
         held.st_dev == named.st_dev && held.st_ino == named.st_ino;
}

Fd openAndLock(const fs::path &directory, DirLock::Kind kind, std::chrono::milliseconds patience) {
  const auto deadline = Clock::now() + patience;
  for (;;) {
    Fd fd = openDirectory(directory);
    if (tryLock(fd, kind, directory)) {
      if (isStillNamed(fd, directory)) {
        return fd;
      }
      continue;
    }
    if (Clock::now() >= deadline) {
      throw DirInUse(directory);
    }
    std::this_thread::sleep_for(kPollInterval);
  }
}

DirLock makeAndLock(const fs::path &directory) {
  for (;;) {
    if (::mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST) {
      throwErrno(directory);
    }
    try {
      return DirLock(directory, DirLock::Kind::kExclusive, kNoPatience);
    } catch (const std::system_error &error) {
      if (error.code() != std::errc::no_such_file_or_directory) {
        throw;
      }  // its last user has just removed it: create it again
    }
  }
}

}  // namespace

DirLock::DirLock(const fs::path &directory, Kind kind, std::chrono::milliseconds patience)
    : fd_(openAndLock(directory, kind, patience)) {}

ScratchDir::ScratchDir(fs::path directory)
    : path_(std::move(directory)), lock_(makeAndLock(path_)) {
  for (const fs::directory_entry &entry : fs::directory_iterator(path_)) {
    fs::remove_all(entry.path());
  }
}

ScratchDir::~ScratchDir() {
  if (owned_) {
    std::error_code ignored;  // the next run removes the rest
    fs::remove_all(path_, ignored);
  }
}

void ScratchDir::release() {
  owned_ = false;
}

void ScratchDir::adopt(DirLock lock) {
  lock_ = std::move(lock);
}

void removeAbandoned(const fs::path &directory) {
  if (!fs::exists(fs::symlink_status(directory))) {
    return;
  }
  try {
    const ScratchDir takenOver(directory);
  } catch (const DirInUse &) {
  } catch (const std::system_error &) {  // a failed clean-up must not fail the command
  }
}

}  // namespace notes
