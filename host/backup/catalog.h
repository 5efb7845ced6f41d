// The backups of a store: STORE/<application>/<UTC time>/.
#ifndef ARVL_HOST_BACKUP_CATALOG_H_
#define ARVL_HOST_BACKUP_CATALOG_H_

#include <filesystem>
#include <string>
#include <vector>

#include "files/file_error.h"

namespace arvl_host {

// Thrown if the store has no such finished backup.
class NoSuchBackup : public StoreError {
 public:
  using StoreError::StoreError;
};

// Creates the store directory if it does not exist. Throws StoreError.
void makeStore(const std::filesystem::path &store);

// Lists the backups of a store. Throws StoreError.
class Catalog {
 public:
  // The directory has to exist.
  explicit Catalog(std::filesystem::path store);

  const std::filesystem::path &store() const { return store_; }
  std::filesystem::path folderOf(const std::string &application) const;

  // Returns the names of the applications, sorted.
  std::vector<std::string> applications() const;
  // Returns the ids of an application's finished backups, the oldest first.
  std::vector<std::string> backups(const std::string &application) const;
  // Returns the directory names of an application's unfinished backups.
  std::vector<std::string> unfinished(const std::string &application) const;
  // Returns `id` if that backup exists, or the latest id if `id` is empty. Throws NoSuchBackup, which lists
  // the backups that exist.
  std::string find(const std::string &application, const std::string &id) const;

 private:
  std::vector<std::string> foldersIn(const std::string &application) const;

  std::filesystem::path store_;
};

// Returns the normalised path of a finished backup that is given as STORE/APPLICATION/ID. Throws StoreError.
std::filesystem::path finishedBackup(const std::filesystem::path &path);

// Returns why `name` is not a valid application name, or an empty string.
std::string checkApplicationName(const std::string &name);

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_CATALOG_H_
