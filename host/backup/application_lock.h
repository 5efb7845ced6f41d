// Excludes other processes from an application's backups.
#ifndef ARVL_HOST_BACKUP_APPLICATION_LOCK_H_
#define ARVL_HOST_BACKUP_APPLICATION_LOCK_H_

#include <filesystem>

#include "files/file_error.h"
#include "files/unique_fd.h"

namespace arvl_host {

// Thrown if another process works on the same application's backups.
class StoreBusy : public StoreError {
 public:
  using StoreError::StoreError;
};

// Owns the lock on an application's backups: only one process at a time may write or remove them. The
// system releases the lock when the process ends.
class ApplicationLock {
 public:
  // Creates the directory if it does not exist. Throws StoreBusy, which names the holder, and StoreError.
  explicit ApplicationLock(const std::filesystem::path &folder);

 private:
  UniqueFd file_;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_APPLICATION_LOCK_H_
