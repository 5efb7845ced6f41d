// A backup that is being made.
#ifndef ARVL_HOST_BACKUP_NEW_BACKUP_H_
#define ARVL_HOST_BACKUP_NEW_BACKUP_H_

#include <filesystem>
#include <string>
#include <vector>

#include "backup/application_lock.h"
#include "backup/catalog.h"
#include "files/unique_fd.h"

namespace arvl_host {

// The result of removing unfinished backups.
struct Removal {
  std::vector<std::string> removed;  // names
  std::vector<std::string> errors;   // one for each that is still there
};

// Creates a backup in a directory of its own. Owns the application's lock, and the directory until finish().
class NewBackup {
 public:
  // Removes unfinished backups first, as far as possible. Throws StoreBusy, StoreError.
  NewBackup(const Catalog &catalog, const std::string &application);
  ~NewBackup();  // removes the backup unless it is finished
  NewBackup(const NewBackup &) = delete;
  NewBackup &operator=(const NewBackup &) = delete;

  const std::string &id() const { return id_; }
  // Return the directory before and after finish().
  std::filesystem::path partialFolder() const;
  std::filesystem::path folder() const { return parent_ / id_; }
  // The unfinished backups that the constructor found.
  const Removal &unfinished() const { return unfinished_; }

  // Writes all data to the disk. Throws StoreError, also for an earlier write that failed.
  void sync() const;
  // Gives the directory its final name. Throws StoreError.
  void finish();

 private:
  struct Claim {};
  NewBackup(Claim, const Catalog &catalog, const std::string &application);  // chooses the id only

  const std::filesystem::path parent_;
  const ApplicationLock lock_;
  const Removal unfinished_;
  std::string id_;
  UniqueFd folderToSync_;  // opened first, so that syncing reports every later error
  bool isFinished_ = false;
};

// Removes unfinished backups. Throws StoreBusy, StoreError.
Removal removeUnfinished(const Catalog &catalog, const std::string &application);

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_NEW_BACKUP_H_
