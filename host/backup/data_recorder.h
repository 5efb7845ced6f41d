// Records the data of a new backup.
#ifndef ARVL_HOST_BACKUP_DATA_RECORDER_H_
#define ARVL_HOST_BACKUP_DATA_RECORDER_H_

#include <chrono>
#include <filesystem>
#include <string>

#include "backup/file_index.h"
#include "backup/manifest.h"
#include "display/job_display.h"
#include "step/interruption.h"

namespace arvl_host {

// Records every entry after the export. Reads only the files without a checksum in the index. Shows its
// progress. Throws StoreError, std::filesystem::filesystem_error and Interrupted.
class DataRecorder {
 public:
  // All references have to outlive it.
  DataRecorder(std::filesystem::path data, FileIndex &index, JobDisplay &display,
               const Interruption &interruption);

  // Adds a record of each entry to the index and returns the totals.
  Totals record();
  // Throws StoreError if a file that was moved into the backup was changed afterwards.
  void checkMoved();

 private:
  void keepUp();
  FileRecord examine(const std::filesystem::directory_entry &entry, const std::string &path);
  std::string checksumOf(const std::filesystem::path &file, const struct stat &status);

  const std::filesystem::path data_;
  FileIndex &index_;
  JobDisplay &display_;
  const Interruption &interruption_;
  StepProgress progress_;  // bytes: read for checksums
  std::chrono::steady_clock::time_point begin_;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_DATA_RECORDER_H_
