// Copies entries of the file system by descriptor, so that nothing that is swapped in meanwhile leads
// elsewhere.
#ifndef ARVL_HOST_FILE_COPY_H_
#define ARVL_HOST_FILE_COPY_H_

#include <sys/stat.h>

#include <atomic>
#include <optional>
#include <string>
#include <vector>

#include "unique_fd.h"

namespace arvl_host {

// An entry by the folder that holds it; shown is how messages name it.
struct Place {
  int folder;
  std::string name;
  std::string shown;
};

// Makes one copy or one move: of a file, by way of a temporary name and with its mode and times; of a
// link, as itself; of a whole tree, merged into one that is there, whose folders keep their own mode and
// times. Anything else is refused unopened, and so is a tree that would be copied into itself. Throws
// StoreError.
class Copier {
 public:
  // Once canceled is true, the copy ends with an error, and no file is left half written.
  explicit Copier(const std::atomic<bool> &canceled) : canceled_(canceled) {}

  // path is an O_PATH descriptor: what has been examined through it is what is copied.
  void copy(int path, const std::string &shown, const Place &to);

  // Renames what can be renamed, entry by entry where trees are merged; copies and removes the rest.
  void move(const Place &from, const Place &to);

 private:
  void copyFile(int path, const std::string &shown, const struct stat &status, const Place &to);
  void copyTree(int path, const std::string &shown, const struct stat &status, const Place &to);
  void copyFolder(int from, const std::string &shown, int to, const std::string &shownTo);
  void copyBytes(int from, const std::string &shown, int to, const std::string &shownTo);
  void checkCanceled() const;

  const std::atomic<bool> &canceled_;
  bool isMoving_ = false;
  std::optional<struct stat> root_;  // the folder that a tree is copied to
  std::vector<char> buffer_;
};

[[noreturn]] void failWith(int error, const std::string &what);

}  // namespace arvl_host

#endif  // ARVL_HOST_FILE_COPY_H_
