// Follows what a transfer reads and writes.
#ifndef ARVL_HOST_FILES_TRANSFER_WATCHER_H_
#define ARVL_HOST_FILES_TRANSFER_WATCHER_H_

#include <sys/stat.h>

#include <cstdint>
#include <string>

namespace arvl_host {

// Follows what is read and written, on the thread that does it. What it throws ends the transfer, and a
// file or link that it refuses is not delivered. Paths are those of the source, as messages show them.
class TransferWatcher {
 public:
  virtual ~TransferWatcher() = default;
  // An entry is copied or listed. What this changes of its mode and times is what is delivered.
  virtual void onEntry(const std::string & /*path*/, struct stat &) {}
  // An entry of a folder vanished after its name was read. It is left out, and not counted below.
  virtual void onVanished(const std::string & /*path*/) {}
  // A folder has been read to its end, each entry as above: how many they were.
  virtual void onFolderEnd(const std::string & /*path*/, std::uint64_t /*entries*/) {}
  // So many more bytes have been copied.
  virtual void onBytes(std::uint64_t /*count*/) {}
  // A file was written while it was copied: the copy may hold parts of both.
  virtual void onChanged(const std::string & /*path*/) {}
  // A file was to be moved while a process had it open for writing. It is copied instead.
  virtual void onOpenForWriting(const std::string & /*path*/) {}
  // A copy is complete, and gets its name next.
  virtual void onFile(const std::string & /*path*/, const std::string & /*sha256*/) {}
  virtual void onLink(const std::string & /*path*/, const std::string & /*target*/) {}
  // A file's copy has its name: its status from then on.
  virtual void onStored(const struct stat &, const std::string & /*sha256*/) {}
  // A file or link was moved by its name alone: its status from then on.
  virtual void onMoved(const struct stat &) {}
  // A request has been served, or is denied whatever came before.
  virtual void onTransferEnd(bool /*isDelivered*/) {}
};

// How a person is told of an entry that vanished.
std::string skippedText(const std::string &path);

}  // namespace arvl_host

#endif  // ARVL_HOST_FILES_TRANSFER_WATCHER_H_
