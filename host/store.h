// The framework's side of file transfers: a folder that no path leads out of.
#ifndef ARVL_HOST_STORE_H_
#define ARVL_HOST_STORE_H_

#include <atomic>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "unique_fd.h"

namespace arvl_host {

// Why a request is denied, in words for the plug-in's author.
class StoreError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum class FileType { kFile, kDir, kSymlink };

// Throws StoreError for a text that is none of "file", "dir" and "symlink".
FileType fileTypeOf(const std::string &text);
const char *fileTypeText(FileType type);

struct StoreEntry {
  std::string name;
  FileType type;
  std::int64_t size;   // bytes
  std::int64_t mtime;  // seconds since the epoch
};

// Store paths are absolute and resolved inside the folder by the kernel: "..", absolute links and links
// that are swapped in meanwhile stay inside, or lead nowhere, which is an error. FIFOs, sockets and
// devices are refused without being opened. Files are written under a temporary name and renamed, so
// that none is ever seen half written. Every operation throws StoreError. One thread uses a store at a
// time; cancel alone may come from another.
class Store {
 public:
  explicit Store(const std::string &folder);

  // In the order of the names. What is neither file, folder nor link is left out.
  std::vector<StoreEntry> list(const std::string &path) const;

  // With its parents; a folder that exists is fine.
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
  UniqueFd openInside(const std::string &path, int flags) const;

  UniqueFd root_;
  std::atomic<bool> canceled_{false};
};

}  // namespace arvl_host

#endif  // ARVL_HOST_STORE_H_
