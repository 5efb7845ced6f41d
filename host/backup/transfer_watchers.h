// Records files during a backup, and checks them during a restore.
#ifndef ARVL_HOST_BACKUP_TRANSFER_WATCHERS_H_
#define ARVL_HOST_BACKUP_TRANSFER_WATCHERS_H_

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "backup/file_index.h"
#include "files/transfer_watcher.h"
#include "text/tally.h"

namespace arvl_host {

// Counts files and bytes on the thread that transfers. Any thread may read it, even during a transfer.
struct TransferMeter {
  std::atomic<std::uint64_t> files{0};
  std::atomic<std::uint64_t> bytes{0};

  // Takes back the counts of a transfer that is denied.
  void endTransfer(bool isDelivered);

 private:
  std::uint64_t deliveredFiles_ = 0;
  std::uint64_t deliveredBytes_ = 0;
};

// Keeps the checksums of copied files, so that they need not be read again.
class BackupWatcher : public TransferWatcher {
 public:
  BackupWatcher(FileIndex &index, TransferMeter &meter) : index_(index), meter_(meter) {}

  void onBytes(std::uint64_t count) override { meter_.bytes += count; }
  void onChanged(const std::string &path) override;
  void onVanished(const std::string &path) override { skipped_.add(path); }
  void onOpenForWriting(const std::string &path) override;
  void onStored(const struct stat &status, const std::string &sha256) override;
  void onMoved(const struct stat &status) override;
  void onTransferEnd(bool isDelivered) override { meter_.endTransfer(isDelivered); }

  // Files that were written, or open for writing, while they were copied or moved. Read it when no transfer runs.
  const Tally &changed() const { return changed_; }
  // Entries of uploaded directories that vanished before they were copied. Likewise.
  const Tally &skipped() const { return skipped_; }
  // A warning for each changed file that the tally keeps, and one if there are more. Likewise.
  const std::vector<std::string> &warnings() const { return warnings_; }

 private:
  void warn(const std::string &path, const std::string &what);

  Tally changed_;
  std::string lastChanged_;
  Tally skipped_;
  std::vector<std::string> warnings_;
  FileIndex &index_;
  TransferMeter &meter_;
};

// Compares entries with their records. Throws StoreError with the entry that is damaged, missing or unknown.
class RestoreWatcher : public TransferWatcher {
 public:
  RestoreWatcher(FileIndex &index, TransferMeter &meter) : index_(index), meter_(meter) {}

  // Sets the recorded mode and time: the store may have been copied without them.
  void onEntry(const std::string &path, struct stat &status) override;
  void onFolderEnd(const std::string &path, std::uint64_t entries) override;
  void onBytes(std::uint64_t count) override { meter_.bytes += count; }
  void onFile(const std::string &path, const std::string &sha256) override;
  void onLink(const std::string &path, const std::string &target) override;
  void onTransferEnd(bool isDelivered) override { meter_.endTransfer(isDelivered); }

 private:
  FileRecord recordOf(const std::string &path);

  FileIndex &index_;
  TransferMeter &meter_;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_TRANSFER_WATCHERS_H_
