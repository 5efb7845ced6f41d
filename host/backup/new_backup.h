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

// Unfinished backups that were to be removed.
struct Removal {
  std::vector<std::string> removed;  // names
  std::vector<std::string> errors;   // one for each that is still there
};

// A backup that is being made. Unfinished backups are removed first, as far as possible.
class NewBackup {
 public:
  NewBackup(const Catalog &catalog, const std::string &application);
  ~NewBackup();  // removes it unless it is finished
  NewBackup(const NewBackup &) = delete;
  NewBackup &operator=(const NewBackup &) = delete;

  const std::string &id() const { return id_; }
  // Where it is being made, and where it will be.
  std::filesystem::path partialFolder() const;
  std::filesystem::path folder() const { return parent_ / id_; }
  // The unfinished backups that were there.
  const Removal &unfinished() const { return unfinished_; }

  // Makes all that has been written safe from a loss of power.
  void sync() const;
  // Gives the folder its name.
  void finish();

 private:
  struct Claim {};
  NewBackup(Claim, const Catalog &catalog, const std::string &application);  // a name, no folder

  const std::filesystem::path parent_;
  const ApplicationLock lock_;
  const Removal unfinished_;
  std::string id_;
  UniqueFd folderToSync_;  // open from the beginning: it hears of errors since then
  bool isFinished_ = false;
};

// Removes unfinished backups. Throws StoreBusy, StoreError.
Removal removeUnfinished(const Catalog &catalog, const std::string &application);

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_NEW_BACKUP_H_
