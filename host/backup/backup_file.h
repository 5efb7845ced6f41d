// Opens the files that describe a backup.
#ifndef ARVL_HOST_BACKUP_BACKUP_FILE_H_
#define ARVL_HOST_BACKUP_BACKUP_FILE_H_

#include <filesystem>

#include "files/file_error.h"
#include "files/unique_fd.h"

namespace arvl_host {

// Thrown if the backup cannot be examined: a later version of arvl-host wrote its manifest, or the user
// has no permission to read it. The backup may be sound.
class CannotExamine : public StoreError {
 public:
  using StoreError::StoreError;
};

// Opens a regular file for reading. Throws CannotExamine if permission is denied, StoreError for other
// errors.
UniqueFd openBackupFile(const std::filesystem::path &path);

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_BACKUP_FILE_H_
