// The events of a file transfer.
#ifndef ARVL_HOST_FILES_TRANSFER_WATCHER_H_
#define ARVL_HOST_FILES_TRANSFER_WATCHER_H_

#include <sys/stat.h>

#include <cstdint>
#include <string>

namespace arvl_host {

// Receives the events of a transfer, on the thread of the transfer. An exception ends the transfer.
// After an exception from onFile() or onLink(), that entry is not delivered. Paths are those of the
// source.
class TransferWatcher {
 public:
  virtual ~TransferWatcher() = default;
  // An entry is copied or listed. Its copy gets the mode and times that the watcher leaves in the status.
  virtual void onEntry(const std::string & /*path*/, struct stat &) {}
  // An entry of a directory vanished after its name was read. It is skipped, and not counted by onFolderEnd().
  virtual void onVanished(const std::string & /*path*/) {}
  // A directory was read to its end and had that many entries.
  virtual void onFolderEnd(const std::string & /*path*/, std::uint64_t /*entries*/) {}
  // `count` more bytes were copied.
  virtual void onBytes(std::uint64_t /*count*/) {}
  // A file was written while it was copied. The copy may mix old and new contents.
  virtual void onChanged(const std::string & /*path*/) {}
  // A file was copied instead of moved, because a process had it open for writing.
  virtual void onOpenForWriting(const std::string & /*path*/) {}
  // The copy of a file is complete and is renamed next.
  virtual void onFile(const std::string & /*path*/, const std::string & /*sha256*/) {}
  // A link is created next.
  virtual void onLink(const std::string & /*path*/, const std::string & /*target*/) {}
  // The copy of a file has its name and this status.
  virtual void onStored(const struct stat &, const std::string & /*sha256*/) {}
  // A file or link was renamed and has this status.
  virtual void onMoved(const struct stat &) {}
  // The request was served or denied. If it was denied, the watcher must discard the earlier events of
  // the request.
  virtual void onTransferEnd(bool /*isDelivered*/) {}
};

// Returns the message about an entry that vanished.
std::string skippedText(const std::string &path);

}  // namespace arvl_host

#endif  // ARVL_HOST_FILES_TRANSFER_WATCHER_H_
