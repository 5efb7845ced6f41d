// The backups of a store: STORE/<application>/<UTC time>/.
#ifndef ARVL_HOST_BACKUP_CATALOG_H_
#define ARVL_HOST_BACKUP_CATALOG_H_

#include <filesystem>
#include <string>
#include <vector>

#include "files/file_error.h"

namespace arvl_host {

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

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_CATALOG_H_
