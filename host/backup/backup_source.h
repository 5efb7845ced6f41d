// Serves a finished backup to a plug-in.
#ifndef ARVL_HOST_BACKUP_BACKUP_SOURCE_H_
#define ARVL_HOST_BACKUP_BACKUP_SOURCE_H_

#include <json/value.h>

#include <filesystem>
#include <functional>
#include <string>

#include "backup/file_index.h"
#include "backup/manifest.h"
#include "backup/transfer_watchers.h"
#include "files/store.h"

namespace arvl_host {

// Makes the answer to an export-result request from a manifest. Throws StoreError, which begins with `shown`,
// if no packet could carry the answer or the answer would break the rule book.
Json::Value exportResultOf(const Manifest &manifest, const std::string &shown);

// Serves the data for reading only, and compares each entry with the manifest before it is delivered.
class BackupSource {
 public:
  // Reads and checks the whole manifest. Calls `checkpoint` for each record; an exception from it
  // propagates. Throws StoreError. The meter has to outlive it.
  BackupSource(
      const std::filesystem::path &folder, TransferMeter &meter,
      const std::function<void()> &checkpoint = [] {});

  const Manifest &manifest() const { return manifest_; }
  const Json::Value &exportResult() const { return exportResult_; }
  Store &store() { return store_; }

 private:
  FileIndex index_;
  const Manifest manifest_;
  const Json::Value exportResult_;
  RestoreWatcher watcher_;
  Store store_;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_BACKUP_SOURCE_H_
