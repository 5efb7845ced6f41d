// The framework's side of file transfers: a folder that no path leads out of.
#ifndef ARVL_HOST_FILES_STORE_H_
#define ARVL_HOST_FILES_STORE_H_

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "files/copier.h"
#include "files/file_type.h"
#include "files/folder_reader.h"
#include "files/transfer_watcher.h"
#include "files/unique_fd.h"

namespace arvl_host {

// Returns the type that a request names. Throws StoreError for a text that is no type.
FileType requireFileType(const std::string &text);

struct StoreEntry {
  std::string name;
  FileType type = FileType::kFile;
  std::int64_t size = 0;   // bytes
  std::int64_t mtime = 0;  // seconds since the epoch
};

// The entries of a folder of the store, in the order of the file system. What is neither file, folder nor
// link is left out.
class StoreListing {
 public:
  StoreListing(FolderReader reader, std::string path, TransferWatcher *watcher)
      : reader_(std::move(reader)), path_(std::move(path)), watcher_(watcher) {}

  // Nothing at the end. Throws StoreError.
  std::optional<StoreEntry> next();
  void rewind();

 private:
  FolderReader reader_;
  std::string path_;
  TransferWatcher *watcher_;
  std::uint64_t entries_ = 0;
};

// "/a/b" as "/a/" and "b".
struct SplitPath {
  std::string folder;
  std::string name;
};

struct StoreOptions {
  CopyOptions copies;
  bool isReadOnly = false;  // the data of a backup, which is no link
};

// Store paths are absolute and resolved inside the folder by the kernel: "..", absolute links and links
// that are swapped in meanwhile stay inside, or lead nowhere, which is an error. FIFOs, sockets and
// devices are refused without being opened. Files are written under a temporary name and renamed, so
// that none is ever seen half written. Every operation throws StoreError. One thread uses a store at a
// time; cancel alone may come from another.
class Store {
 public:
  // A watcher among the options has to outlive it.
  explicit Store(const std::string &folder, const StoreOptions &options = {});

  StoreListing list(const std::string &path) const;

  // Opens an entry with the flags of open(2) and follows no link, not even on the way to it. Returns an
  // empty descriptor if there is no such entry.
  UniqueFd openEntry(const std::string &path, int flags) const;

  // With its parents; a folder that exists is fine. Where it fails, it leaves none that it made.
  void createDir(const std::string &path) const;

  // Copies a local file, link or whole tree to exactly that path; the folder that holds it must exist.
  // A temporary source is moved. A tree is merged into one that is there.
  void upload(const std::string &source, FileType type, bool isTemporary,
              const std::string &destination) const;

  // Copies to a local path, or into it where that is a folder.
  void download(const std::string &source, FileType type, const std::string &destination) const;

  // Transfers end with an error from now on, the one that runs and all that follow.
  void cancel() { canceled_ = true; }

 private:
  UniqueFd tryOpen(const std::string &path, int flags, std::uint64_t resolve) const;
  UniqueFd openInside(const std::string &path, int flags) const;
  std::string realPath(int fd, const std::string &path) const;
  std::size_t roomIn(const UniqueFd &folder, const std::string &path) const;
  void checkWritable() const;
  // Appends each folder that it makes, even where it throws.
  void makeFolders(const std::string &path, std::vector<SplitPath> &made) const;
  void removeFolders(const std::vector<SplitPath> &made) const;
  void transfer(const CopyOptions &options, const std::function<void(Copier &)> &work) const;

  UniqueFd root_;
  const std::size_t rootLength_;  // of the path by which it was opened
  const StoreOptions options_;
  std::atomic<bool> canceled_{false};
};

}  // namespace arvl_host

#endif  // ARVL_HOST_FILES_STORE_H_
