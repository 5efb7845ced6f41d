// The backups of a store: STORE/<application>/<UTC time>/.
#ifndef ARVL_HOST_BACKUP_CATALOG_H_
#define ARVL_HOST_BACKUP_CATALOG_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "files/file_error.h"
#include "files/unique_fd.h"

namespace arvl_host {

// Another process works on the same application's backups.
class StoreBusy : public StoreError {
 public:
  using StoreError::StoreError;
};

// The store has no such finished backup.
class NoSuchBackup : public StoreError {
 public:
  using StoreError::StoreError;
};

// If it is not there. Throws StoreError.
void makeStore(const std::filesystem::path &store);

// Throws StoreError.
class Catalog {
 public:
  // The folder has to be there.
  explicit Catalog(std::filesystem::path store);

  const std::filesystem::path &store() const { return store_; }
  std::filesystem::path folderOf(const std::string &application) const;

  // In the order of their names.
  std::vector<std::string> applications() const;
  // The finished backups of an application, the oldest first.
  std::vector<std::string> backups(const std::string &application) const;
  // The names of the folders that backups left which did not finish.
  std::vector<std::string> unfinished(const std::string &application) const;
  // The backup of that name, or the latest if it is empty. Throws NoSuchBackup, which says which there are.
  std::string find(const std::string &application, const std::string &id) const;

 private:
  std::vector<std::string> foldersIn(const std::string &application) const;

  std::filesystem::path store_;
};

// Returns the normalised path of a finished backup that is given as STORE/APPLICATION/ID. Throws StoreError.
std::filesystem::path finishedBackup(const std::filesystem::path &path);

// What may be the name of an application's folder; empty, or why it may not.
std::string checkApplicationName(const std::string &name);

// Held while an application's backups are written or cleared: by one process at a time, however it ends.
class ApplicationLock {
 public:
  // The folder is made if it is not there. Throws StoreBusy, which names the holder.
  explicit ApplicationLock(const std::filesystem::path &folder);

 private:
  UniqueFd file_;
};

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

// "20261121T092532.123Z"; sorts by time.
std::string backupId(std::int64_t microseconds);

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_CATALOG_H_
