// Compares a backup with its manifest and its SHA256SUMS.
#ifndef ARVL_HOST_BACKUP_VERIFY_H_
#define ARVL_HOST_BACKUP_VERIFY_H_

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

#include "backup/manifest.h"
#include "display/progress_line.h"

namespace arvl_host {

struct Verification {
  Totals totals;  // as the manifest says
  std::uint64_t problems = 0;
};

using OnVerifyProgress = std::function<void(const StepProgress &progress)>;

// Called for each difference. The path is relative to the backup's directory.
using OnProblem = std::function<void(const std::string &path, const std::string &problem)>;

// Reads every file of the backup and returns the number of problems. Counts an unreadable manifest as
// one problem and stops. Calls `onProgress` often; an exception from it propagates. Throws StoreError if
// the backup cannot be examined.
Verification verifyBackup(const std::filesystem::path &folder, const OnProblem &onProblem,
                          const OnVerifyProgress &onProgress);

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_VERIFY_H_
