// Locks on directories, and scratch directories that a crash may leave without harm.
#ifndef NOTES_APP_DIR_LOCK_H_
#define NOTES_APP_DIR_LOCK_H_

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "app/files.h"

namespace notes {

// Thrown if another process holds the lock on the directory.
class DirInUse : public std::runtime_error {
 public:
  explicit DirInUse(const std::filesystem::path &directory)
      : std::runtime_error(directory.string() + " is in use by another process") {}
};

// Owns a lock on a directory. The lock is on the directory itself, not on its name: it remains when
// the directory is renamed, needs no extra file, and ends with the process.
class DirLock {
 public:
  enum class Kind { kShared, kExclusive };

  // Waits for the lock. After the timeout throws DirInUse. Throws std::system_error (ENOENT) if
  // there is no such directory.
  DirLock(const std::filesystem::path &directory, Kind kind, std::chrono::milliseconds patience);

 private:
  Fd fd_;
};

// Owns a temporary directory of one process: empty at first, and removed by the destructor. Takes
// over a directory that a killed process left. Throws DirInUse if another process uses it.
class ScratchDir {
 public:
  explicit ScratchDir(std::filesystem::path directory);
  ~ScratchDir();
  ScratchDir(const ScratchDir &) = delete;
  ScratchDir &operator=(const ScratchDir &) = delete;

  const std::filesystem::path &path() const { return path_; }

  // Gives up the directory, which has been renamed.
  void release();
  // Takes over the directory that now has the name, to remove it instead.
  void adopt(DirLock lock);

 private:
  std::filesystem::path path_;
  DirLock lock_;
  bool owned_ = true;
};

// Removes a scratch directory that a killed process left. Does nothing if there is none, or if it
// is in use or cannot be removed.
void removeAbandoned(const std::filesystem::path &directory);

}  // namespace notes

#endif  // NOTES_APP_DIR_LOCK_H_
