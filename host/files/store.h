// The framework's side of file transfers: a directory that no path leads out of.
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

// Returns the type that a request names. Throws StoreError for an unknown name.
FileType requireFileType(const std::string &text);

struct StoreEntry {
  std::string name;
  FileType type = FileType::kFile;
  std::int64_t size = 0;   // bytes
  std::int64_t mtime = 0;  // seconds since the epoch
};

// Lists the files, directories and links in a directory of the store, in the order of the file system.
class StoreListing {
 public:
  StoreListing(FolderReader reader, std::string path, TransferWatcher *watcher)
      : reader_(std::move(reader)), path_(std::move(path)), watcher_(watcher) {}

  // Returns the next entry, or nothing at the end. Throws StoreError.
  std::optional<StoreEntry> next();
  void rewind();

 private:
  FolderReader reader_;
  std::string path_;
  TransferWatcher *watcher_;
  std::uint64_t entries_ = 0;
};

// The path "/a/b" in two parts, "/a/" and "b".
struct SplitPath {
  std::string directory;
  std::string name;
};

struct StoreOptions {
  CopyOptions copies;
  bool isReadOnly = false;  // for a restore; the directory must not be a link
};

// A directory that a plug-in reads and writes by absolute paths. The kernel resolves them inside the directory:
// "..", absolute links and links that are swapped in meanwhile stay inside, or the operation fails. FIFOs,
// sockets and devices are refused without being opened. Files are written under a temporary name and renamed, so
// that nobody sees a partly written file. Every operation throws StoreError. Only cancel() may be called from
// another thread.
class Store {
 public:
  // The watcher must outlive the store.
  explicit Store(const std::string &directory, const StoreOptions &options = {});

  StoreListing list(const std::string &path) const;

  // Opens an entry with the flags of open(2) without following links, also not in parent directories.
  // Returns an empty descriptor if the entry does not exist.
  UniqueFd openEntry(const std::string &path, int flags) const;

  // Creates a directory and its parents if they do not exist. Removes those that it created if it fails.
  void createDir(const std::string &path) const;

  // Copies a local file, link or tree to exactly this path, whose parent must exist. Moves a temporary source.
  // Merges a tree into an existing one.
  void upload(const std::string &source, FileType type, bool isTemporary,
              const std::string &destination) const;

  // Copies to a local path, or into it if it is a directory.
  void download(const std::string &source, FileType type, const std::string &destination) const;

  // Makes the current transfer and all later ones fail.
  void cancel() { canceled_ = true; }

 private:
  UniqueFd tryOpen(const std::string &path, int flags, std::uint64_t resolve) const;
  UniqueFd openInside(const std::string &path, int flags) const;
  std::string realPath(int fd, const std::string &path) const;
  std::size_t roomIn(const UniqueFd &directory, const std::string &path) const;
  void checkWritable() const;
  // Adds each directory that it creates to `created`, even if it throws later.
  void createDirectories(const std::string &path, std::vector<SplitPath> &created) const;
  void removeDirectories(const std::vector<SplitPath> &created) const;
  void transfer(const CopyOptions &options, const std::function<void(Copier &)> &work) const;

  UniqueFd root_;
  const std::size_t rootLength_;  // of the path that opened it
  const StoreOptions options_;
  std::atomic<bool> canceled_{false};
};

}  // namespace arvl_host

#endif  // ARVL_HOST_FILES_STORE_H_
