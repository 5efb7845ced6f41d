// Copies and moves files, links and trees by descriptor. A link that is swapped in meanwhile is not followed.
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
#include "files/place.h"
#include "files/sha256.h"
#include "files/temporary_file.h"
#include "files/transfer_watcher.h"

namespace arvl_host {

struct CopyOptions {
  TransferWatcher *watcher = nullptr;
  Durability durability = Durability::kEachFile;
  std::size_t maxBelow =
      SIZE_MAX;  // maximum length of a path below the copied tree's destination, in bytes
};

// Makes one copy or one move. Throws StoreError.
// - A file keeps its mode, times and holes. It is written under a temporary name and then renamed. The next
//   copy to the same place removes the temporary file of a killed host.
// - A link is copied itself.
// - A tree is merged into an existing one, whose directories keep their mode and times. Entries that vanish
//   during the copy are skipped. A tree is not copied into itself.
// - Entries of other types are refused without being opened.
class Copier {
 public:
  // Once `canceled` is true, the copy fails and leaves no partly written file.
  explicit Copier(const std::atomic<bool> &canceled, const CopyOptions &options = {})
      : canceled_(canceled), options_(options) {}

  // Copies the entry that the O_PATH descriptor refers to. Messages name it `shown`.
  void copy(int path, const std::string &shown, const Place &to);

  // Renames links, and files that no process has open for writing. Copies and removes other files, and
  // moves trees entry by entry. Leaves a source that it cannot remove. If a tree has an entry that a
  // copy would refuse, moves nothing.
  void move(const Place &from, const Place &to);

 private:
  void moveEntry(const Place &from, const Place &to);
  bool moveByName(const struct stat &status, int path, const Place &from, const Place &to);
  void checkMovable(const Place &from, const std::string &shownTo) const;
  void copyFile(int path, const std::string &shown, const struct stat &status, const Place &to);
  void copyLink(int link, const std::string &shown, const Place &to);
  void copyTree(int path, const std::string &shown, const struct stat &status, const Place &to);
  void copyDirectory(int from, const std::string &shown, int to, const std::string &shownTo);
  void copyEntry(const Place &from, const Place &to);
  // Returns the checksum of the copied bytes, or an empty string without a watcher.
  std::string copyBytes(int from, const std::string &shown, const struct stat &status,
                        TemporaryFile &to);
  std::size_t copyHole(int from, const std::string &shown, std::int64_t end, TemporaryFile &to);
  void count(const char *data, std::size_t size);
  void checkCanceled() const;

  const std::atomic<bool> &canceled_;
  const CopyOptions options_;
  bool isMoving_ = false;
  std::optional<struct stat> root_;  // the top directory of the copy of a tree
  std::size_t rootLength_ = 0;       // of the path that messages name it by
  std::vector<char> buffer_;
  std::optional<Sha256> digest_;  // of the current file, if there is a watcher
};

}  // namespace arvl_host

#endif  // ARVL_HOST_FILES_COPIER_H_
