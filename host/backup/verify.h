// Compares a backup with what it says of itself.
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
  Totals totals;  // of what the manifest knows
  std::uint64_t problems = 0;
};

using OnVerifyProgress = std::function<void(const StepProgress &progress)>;

// Each difference, by the path below the backup's folder, and what it is.
using OnProblem = std::function<void(const std::string &path, const std::string &problem)>;

// Reads every file of the backup. A manifest that cannot be read is one problem, and the last. What
// onProgress, which is called often, throws ends it. Throws StoreError for a backup that cannot be
// examined.
Verification verifyBackup(const std::filesystem::path &folder, const OnProblem &onProblem,
                          const OnVerifyProgress &onProgress);

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_VERIFY_H_
