#include "backup/transfer_watchers.h"

#include "files/file_error.h"

namespace arvl_host {

void TransferMeter::endTransfer(bool isDelivered) {
  if (isDelivered) {
    deliveredFiles_ = files;
    deliveredBytes_ = bytes;
  } else {
    files = deliveredFiles_;
    bytes = deliveredBytes_;
  }
}

// ---- BackupWatcher.

// Counts a file that was open for writing and then written once.
void BackupWatcher::warn(const std::string &path, const std::string &what) {
  if (path == lastChanged_) {
    return;
  }
  lastChanged_ = path;
  const Tally::Added added = changed_.add(path);
  if (added == Tally::Added::kNew) {
    warnings_.push_back(quoted(path) + what);
  } else if (added == Tally::Added::kNotKept && warnings_.size() == Tally::kMaxTexts) {
    warnings_.push_back(
        std::to_string(Tally::kMaxTexts) +
        " different changed files have been shown; further ones are counted, not shown");
  }
}

void BackupWatcher::onChanged(const std::string &path) {
  warn(path, " was written while it was copied: the copy may hold parts of both");
}

void BackupWatcher::onOpenForWriting(const std::string &path) {
  warn(
      path,
      " was open for writing when it was to be moved: it was copied, and the copy may not hold all "
      "that is written");
}

void BackupWatcher::onStored(const struct stat &status, const std::string &sha256) {
  ++meter_.files;
  index_.addChecksum(status, sha256);
}

// DataRecorder reads the file later.
void BackupWatcher::onMoved(const struct stat &status) {
  if (S_ISREG(status.st_mode)) {
    index_.addMoved(status);
    ++meter_.files;
    meter_.bytes += static_cast<std::uint64_t>(status.st_size);
  }
}

// ---- RestoreWatcher.

FileRecord RestoreWatcher::recordOf(const std::string &path) {
  const std::optional<FileRecord> record = index_.find(path);
  if (!record) {
    throw StoreError(quoted(path) + " was not backed up: the manifest has no such entry");
  }
  return *record;
}

void RestoreWatcher::onEntry(const std::string &path, struct stat &status) {
  const FileRecord record = recordOf(path);
  const std::optional<FileType> type = fileTypeOf(status.st_mode);
  if (type != record.type) {
    throw StoreError(quoted(path) + " is damaged: it is of type " +
                     (type ? fileTypeText(*type) : "none") + ", and was of type " +
                     fileTypeText(record.type));
  }
  if (type == FileType::kFile && record.size != status.st_size) {
    throw StoreError(quoted(path) + " is damaged: it has " + std::to_string(status.st_size) +
                     " bytes, and had " + std::to_string(record.size));
  }
  status.st_mode = (status.st_mode & S_IFMT) | record.mode;
  status.st_mtim.tv_sec = record.mtime;
  status.st_mtim.tv_nsec = record.mtimeNsec;
}

// onEntry() has refused unknown entries, so a smaller number means that one is missing.
void RestoreWatcher::onFolderEnd(const std::string &path, std::uint64_t entries) {
  const std::uint64_t known = index_.countIn(path);
  if (entries != known) {
    throw StoreError("the directory " + quoted(path.empty() ? "/" : path) + " is damaged: it has " +
                     std::to_string(entries) + " entries, and had " + std::to_string(known));
  }
}

void RestoreWatcher::onFile(const std::string &path, const std::string &sha256) {
  const FileRecord record = recordOf(path);
  if (record.sha256 != sha256) {
    throw StoreError(quoted(path) + " is damaged: its SHA-256 is " + sha256 + ", and was " +
                     record.sha256);
  }
  ++meter_.files;
}

void RestoreWatcher::onLink(const std::string &path, const std::string &target) {
  if (recordOf(path).target != target) {
    throw StoreError(quoted(path) + " is damaged: the link leads elsewhere than it did");
  }
}

}  // namespace arvl_host
