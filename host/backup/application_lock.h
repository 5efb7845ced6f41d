// Excludes other processes from an application's backups.
#ifndef ARVL_HOST_BACKUP_APPLICATION_LOCK_H_
#define ARVL_HOST_BACKUP_APPLICATION_LOCK_H_

#include <filesystem>

#include "files/file_error.h"
#include "files/unique_fd.h"

namespace arvl_host {

// Another process works on the same application's backups.
class StoreBusy : public StoreError {
 public:
  using StoreError::StoreError;
};

// Held while an application's backups are written or cleared: by one process at a time, however it ends.
class ApplicationLock {
 public:
  // The folder is made if it is not there. Throws StoreBusy, which names the holder.
  explicit ApplicationLock(const std::filesystem::path &folder);

 private:
  UniqueFd file_;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_APPLICATION_LOCK_H_
