// Copies entries of the file system by descriptor, so that nothing that is swapped in meanwhile leads
// elsewhere.
#ifndef ARVL_HOST_FILES_COPIER_H_
#define ARVL_HOST_FILES_COPIER_H_

#include <sys/stat.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "files/file_error.h"
#include "files/sha256.h"
#include "files/temporary_file.h"
#include "files/transfer_watcher.h"

namespace arvl_host {

struct CopyOptions {
  TransferWatcher *watcher = nullptr;
  Durability durability = Durability::kEachFile;
  std::size_t maxBelow = SIZE_MAX;  // bytes that a path may have below the destination of a tree
};

// Makes one copy or one move: of a file, by way of a temporary name, with its mode, times and holes; of a
// link, as itself; of a whole tree, merged into one that is there, whose folders keep their own mode and
// times. Anything else is refused unopened, and so is a tree that would be copied into itself. An entry of a
// tree that vanishes meanwhile is left out. What a killed host left under a temporary name is removed by
// the next copy to the same place. Throws StoreError.
class Copier {
 public:
  // Once canceled is true, the copy ends with an error, and no file is left half written.
  explicit Copier(const std::atomic<bool> &canceled, const CopyOptions &options = {})
      : canceled_(canceled), options_(options) {}

  // path is an O_PATH descriptor: what has been examined through it is what is copied.
  void copy(int path, const std::string &shown, const Place &to);

  // Goes through a tree entry by entry. Renames files that no process has open for writing, and links; copies
  // and removes the rest. What cannot be removed stays. A tree that holds what a copy would refuse is refused
  // before anything of it is moved.
  void move(const Place &from, const Place &to);

 private:
  bool moveByName(const struct stat &status, int path, const Place &from, const Place &to);
  void checkMovable(const Place &from, const std::string &shownTo) const;
  void copyFile(int path, const std::string &shown, const struct stat &status, const Place &to);
  void copyLink(int link, const std::string &shown, const Place &to);
  void copyTree(int path, const std::string &shown, const struct stat &status, const Place &to);
  void copyFolder(int from, const std::string &shown, int to, const std::string &shownTo);
  void copyEntry(const Place &from, const Place &to);
  // The checksum of what has been copied; empty without a watcher.
  std::string copyBytes(int from, const std::string &shown, const struct stat &status,
                        TemporaryFile &to);
  std::size_t copyHole(int from, const std::string &shown, std::int64_t end, TemporaryFile &to);
  void count(const char *data, std::size_t size);
  void checkCanceled() const;

  const std::atomic<bool> &canceled_;
  const CopyOptions options_;
  bool isMoving_ = false;
  std::optional<struct stat> root_;  // the folder that a tree is copied to
  std::size_t rootLength_ = 0;       // of the path by which messages show it
  std::vector<char> buffer_;
  std::optional<Sha256> digest_;  // of the file that is copied; none without a watcher
};

}  // namespace arvl_host

#endif  // ARVL_HOST_FILES_COPIER_H_
