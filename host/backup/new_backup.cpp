#include "backup/new_backup.h"

#include <stdio.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "backup/backup_id.h"
#include "backup/directory.h"
#include "backup/manifest.h"
#include "files/file_error.h"
#include "files/remove_tree.h"
#include "text/dates.h"

namespace fs = std::filesystem;

namespace arvl_host {

namespace {

Removal removePartials(const Catalog &catalog, const std::string &application) {
  const fs::path folder = catalog.folderOf(application);
  const UniqueFd open = openDirectory(folder);
  Removal result;
  for (const std::string &name : catalog.unfinished(application)) {
    try {
      removeTree({open.get(), name, folder / name});
      result.removed.push_back(name);
    } catch (const StoreError &error) {
      result.errors.push_back(error.what());
    }
  }
  return result;
}

// The ids that a new backup cannot have, in order: an unfinished backup may be there for good.
std::vector<std::string> takenIds(const Catalog &catalog, const std::string &application) {
  std::vector<std::string> ids = catalog.backups(application);
  for (const std::string &name : catalog.unfinished(application)) {
    ids.push_back(idOfPartial(name));
  }
  std::sort(ids.begin(), ids.end());
  return ids;
}

}  // namespace

NewBackup::NewBackup(Claim, const Catalog &catalog, const std::string &application)
    : parent_(catalog.folderOf(application)),
      lock_(parent_),
      unfinished_(removePartials(catalog, application)) {
  const std::vector<std::string> taken = takenIds(catalog, application);
  id_ = backupId(microsecondsNow());
  if (!taken.empty() && id_ <= taken.back()) {  // the clock was set back or has not advanced
    id_ = nextBackupId(taken.back());
  }
}

// The claim is an object by now: if its folders cannot be made, the destructor removes what there is.
NewBackup::NewBackup(const Catalog &catalog, const std::string &application)
    : NewBackup(Claim(), catalog, application) {
  constexpr mode_t kOwnerAlone = 0700;  // because the source directories may be private too
  makeDirectory(partialFolder(), kOwnerAlone);
  makeDirectory(partialFolder() / kDataName, 0777);
  folderToSync_ = openDirectory(partialFolder());
}

NewBackup::~NewBackup() {
  if (isFinished_) {
    return;
  }
  try {
    removeTree({openDirectory(parent_).get(), partialName(id_), partialFolder()});
  } catch (const StoreError &) {  // the next backup tries again
  }
}

fs::path NewBackup::partialFolder() const {
  return parent_ / partialName(id_);
}

void NewBackup::sync() const {
  if (syncfs(folderToSync_.get()) != 0) {
    failWith(errno, "cannot sync " + quoted(partialFolder()));
  }
}

void NewBackup::finish() {
  syncDirectory(partialFolder());
  if (rename(partialFolder().c_str(), folder().c_str()) != 0) {
    failWith(errno, "cannot rename " + quoted(partialFolder()));
  }
  isFinished_ = true;
  syncDirectory(parent_);
}

Removal removeUnfinished(const Catalog &catalog, const std::string &application) {
  if (catalog.unfinished(application).empty()) {
    return {};
  }
  const ApplicationLock lock(catalog.folderOf(application));
  return removePartials(catalog, application);
}

}  // namespace arvl_host
