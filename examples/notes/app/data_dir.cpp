#include "app/data_dir.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>
#include <system_error>
#include <utility>

#include "app/files.h"

namespace fs = std::filesystem;

namespace notes {
namespace {

constexpr std::chrono::seconds kPatience(5);

constexpr std::array<std::string_view, 6> kOwnFiles = {
    "notes.db", "notes.db-wal", "notes.db-shm", "notes.db-journal", "attachments", ".export"};

// Returns false if the kernel or the file system does not support it.
bool exchange(const fs::path &a, const fs::path &b) {
  if (::renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE) == 0) {
    return true;
  }
  if (errno != EINVAL && errno != ENOSYS) {
    throwErrno(b);
  }
  return false;
}

}  // namespace

DataDir::DataDir(const fs::path &path) : path_(fs::weakly_canonical(fs::absolute(path))) {
  if (!path_.has_filename()) {
    path_ = path_.parent_path();
  }
}

fs::path DataDir::databaseIn(const fs::path &directory) {
  return directory / "notes.db";
}

fs::path DataDir::attachmentsIn(const fs::path &directory) {
  return directory / "attachments";
}

fs::path DataDir::sibling(const std::string &suffix) const {
  return path_.parent_path() / ("." + path_.filename().string() + suffix);
}

void DataDir::recover() const {
  if (fs::is_directory(retired()) && !fs::exists(path_)) {
    restoreRetired();
  }
  removeAbandoned(retired());
  removeAbandoned(importScratch());
  removeAbandoned(exportScratch());
}

// A replacement in two steps was killed between them or is still running: its lock shows which.
void DataDir::restoreRetired() const {
  try {
    const DirLock lock(retired(), DirLock::Kind::kExclusive, kPatience);
    fs::rename(retired(), path_);
  } catch (const std::system_error &error) {
    if (error.code() != std::errc::no_such_file_or_directory) {
      throw;
    }  // it was running, and has finished
  }
}

DirLock DataDir::share() const {
  return DirLock(path_, DirLock::Kind::kShared, kPatience);
}

void DataDir::requireOwnFilesOnly() const {
  if (!fs::exists(path_)) {
    return;
  }
  for (const fs::directory_entry &entry : fs::directory_iterator(path_)) {
    const std::string name = entry.path().filename();
    if (std::find(kOwnFiles.begin(), kOwnFiles.end(), name) == kOwnFiles.end()) {
      throw ForeignFiles(entry.path().string() + " does not belong to notes");
    }
  }
}

void DataDir::replaceWith(ScratchDir &scratch) const {
  syncFileSystem(scratch.path());
  if (!fs::exists(path_)) {
    fs::rename(scratch.path(), path_);
    scratch.release();
    syncDirectory(path_.parent_path());
    return;
  }
  DirLock lock(path_, DirLock::Kind::kExclusive, kPatience);
  requireOwnFilesOnly();
  if (exchange(scratch.path(), path_)) {
    scratch.adopt(std::move(lock));
    syncDirectory(path_.parent_path());
  } else {
    replaceInTwoSteps(scratch);
  }
}

// For a moment DIR does not exist. A process that opens it then waits for the lock in recover(), and
// restores the old directory if this process has ended.
void DataDir::replaceInTwoSteps(ScratchDir &scratch) const {
  fs::rename(path_, retired());
  std::error_code error;
  fs::rename(scratch.path(), path_, error);
  if (error) {
    fs::rename(retired(), path_);
    throw std::system_error(error, path_.string());
  }
  scratch.release();
  syncDirectory(path_.parent_path());
  fs::remove_all(retired(), error);  // recover() removes the rest
}

}  // namespace notes
