// Locks on directories, and scratch directories that survive a crash without harm.
#ifndef NOTES_APP_DIR_LOCK_H_
#define NOTES_APP_DIR_LOCK_H_

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "app/files.h"

namespace notes {

// Another process holds the directory.
class DirInUse : public std::runtime_error {
 public:
  explicit DirInUse(const std::filesystem::path &directory)
      : std::runtime_error(directory.string() + " is in use by another process") {}
};

// Holds a directory while it lives. The lock is on the directory itself, not on its name: it goes
// along when the directory is renamed, leaves no file behind, and ends with the process.
class DirLock {
 public:
  enum class Kind { kShared, kExclusive };

  // Waits for at most that long, then throws DirInUse. Throws std::system_error (ENOENT) if there is
  // no such directory.
  DirLock(const std::filesystem::path &directory, Kind kind, std::chrono::milliseconds patience);

 private:
  Fd fd_;
};

// A directory for one process's work in progress, empty at first and removed at the end. One that a
// killed process has left is taken over; one that is in use is not touched: DirInUse.
class ScratchDir {
 public:
  explicit ScratchDir(std::filesystem::path directory);
  ~ScratchDir();
  ScratchDir(const ScratchDir &) = delete;
  ScratchDir &operator=(const ScratchDir &) = delete;

  const std::filesystem::path &path() const { return path_; }

  // The directory has been renamed and is no longer this object's business.
  void release();
  // Its name now belongs to another directory, which is to be removed at the end instead.
  void adopt(DirLock lock);

 private:
  std::filesystem::path path_;
  DirLock lock_;
  bool owned_ = true;
};

// Removes a scratch directory that a killed process has left; does nothing if there is none, if it
// is in use or cannot be removed.
void removeAbandoned(const std::filesystem::path &directory);

}  // namespace notes

#endif  // NOTES_APP_DIR_LOCK_H_
