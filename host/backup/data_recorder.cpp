#include "backup/data_recorder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <optional>
#include <utility>

#include "files/file_error.h"
#include "files/sha256.h"
#include "files/unique_fd.h"
#include "text/durations.h"

namespace fs = std::filesystem;

namespace arvl_host {

DataRecorder::DataRecorder(fs::path data, FileIndex &index, JobDisplay &display,
                           const Interruption &interruption)
    : data_(std::move(data)), index_(index), display_(display), interruption_(interruption) {
  progress_.step = "recording";
}

Totals DataRecorder::record() {
  Totals totals;
  const std::size_t prefix = data_.native().size();
  begin_ = std::chrono::steady_clock::now();
  for (const fs::directory_entry &entry : fs::recursive_directory_iterator(data_)) {
    keepUp();
    const FileRecord record = examine(entry, entry.path().native().substr(prefix));
    addTo(totals, record);
    index_.add(record);
  }
  return totals;
}

// A process that still has a moved file open could write to it, even after it was recorded.
void DataRecorder::checkMoved() {
  if (!index_.hasMoved()) {
    return;
  }
  index_.forEach([&](const FileRecord &record) {
    interruption_.check();
    struct stat status;
    if (record.type != FileType::kFile) {
      return;
    }
    if (lstat((data_.native() + record.path).c_str(), &status) != 0) {
      failWith(errno, "cannot examine " + quoted(record.path));
    }
    if (status.st_size != record.size || status.st_mtim.tv_sec != record.mtime ||
        status.st_mtim.tv_nsec != record.mtimeNsec || index_.hasChangedSinceMove(status)) {
      throw StoreError(quoted(record.path) +
                       " was changed after it was moved into the backup: no process may use a "
                       "temporary file once it is uploaded");
    }
  });
}

void DataRecorder::keepUp() {
  interruption_.check();
  progress_.seconds = secondsSince(begin_);
  display_.working(progress_);
}

FileRecord DataRecorder::examine(const fs::directory_entry &entry, const std::string &path) {
  struct stat status;
  if (lstat(entry.path().c_str(), &status) != 0) {
    failWith(errno, "cannot examine " + quoted(path));
  }
  const std::optional<FileType> type = fileTypeOf(status.st_mode);
  if (!type) {
    throw StoreError(quoted(path) + " is neither a file, a directory nor a link");
  }
  FileRecord record;
  record.path = path;
  record.type = *type;
  record.mode = status.st_mode & 07777;
  record.mtime = status.st_mtim.tv_sec;
  record.mtimeNsec = status.st_mtim.tv_nsec;
  if (*type == FileType::kFile) {
    record.size = status.st_size;
    record.sha256 = checksumOf(entry.path(), status);
  } else if (*type == FileType::kSymlink) {
    record.target = fs::read_symlink(entry.path());
    record.size = static_cast<std::int64_t>(record.target.size());
    record.sha256 = sha256Of(record.target);
  }
  return record;
}

// A file that was moved here has not been read yet.
std::string DataRecorder::checksumOf(const fs::path &file, const struct stat &status) {
  const std::string known = index_.checksumOf(status);
  if (!known.empty()) {
    return known;
  }
  const UniqueFd fd(open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (!fd) {
    failWith(errno, "cannot open " + quoted(file));
  }
  return sha256OfFile(fd.get(), file, [this](std::size_t count) {
    progress_.bytes += count;
    keepUp();
  });
}

}  // namespace arvl_host
