// Opens the files that describe a backup.
#ifndef ARVL_HOST_BACKUP_BACKUP_FILE_H_
#define ARVL_HOST_BACKUP_BACKUP_FILE_H_

#include <filesystem>

#include "files/file_error.h"
#include "files/unique_fd.h"

namespace arvl_host {

// The backup cannot be examined, so nothing is known about whether it is sound: a later version of the
// host wrote its manifest, or this user may not read it.
class CannotExamine : public StoreError {
 public:
  using StoreError::StoreError;
};

// Opens a regular file for reading. Throws CannotExamine without the permission, StoreError otherwise.
UniqueFd openBackupFile(const std::filesystem::path &path);

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_BACKUP_FILE_H_
