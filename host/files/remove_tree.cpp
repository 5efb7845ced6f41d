#include "files/remove_tree.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <utility>

#include "files/file_error.h"
#include "files/folder_reader.h"
#include "files/unique_fd.h"

namespace arvl_host {

namespace {

// Removes a file, a link or an empty directory. Returns 0 or the error.
int removeEntry(int directory, const char *name) {
  if (unlinkat(directory, name, 0) == 0 || errno == ENOENT) {
    return 0;
  }
  const int error = errno;
  // For a directory, POSIX returns EPERM and Linux EISDIR.
  if (error != EISDIR && error != EPERM) {
    return error;
  }
  if (unlinkat(directory, name, AT_REMOVEDIR) == 0) {
    return 0;
  }
  return errno == ENOTDIR ? error : errno;
}

bool isNotEmpty(int error) {
  return error == ENOTEMPTY || error == EEXIST;
}

// Makes a directory accessible, so that its entries can be removed. A failure shows when they are removed.
void giveAccess(int directory, const char *name) {
  [[maybe_unused]] const int status = fchmodat(directory, name, S_IRWXU, AT_SYMLINK_NOFOLLOW);
}

UniqueFd openDirectory(int directory, const char *name) {
  return UniqueFd(openat(directory, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

// Empties a directory. A subdirectory that is not empty is first moved up into that directory, so that no
// path gets longer and no directory stays open for each level.
class TreeRemover {
 public:
  TreeRemover(UniqueFd top, std::string shown) : top_(std::move(top)), shown_(std::move(shown)) {}

  void run() {
    FolderReader reader(top_.get(), shown_);
    do {  // until nothing is left, or nothing more can be removed
      hasProgress_ = false;
      firstError_ = 0;
      for (reader.rewind(); const char *name = reader.next();) {
        remove(name);
      }
    } while (hasProgress_);
    if (firstError_ != 0) {
      failWith(firstError_, "cannot remove " + quoted(failed_) + " in " + quoted(shown_));
    }
  }

 private:
  void remove(const char *name) {
    const int error = removeEntry(top_.get(), name);
    if (!isNotEmpty(error)) {
      note(error, name);
      return;
    }
    giveAccess(top_.get(), name);
    const UniqueFd directory = openDirectory(top_.get(), name);
    if (!directory) {
      note(errno, name);
      return;
    }
    empty(directory.get(), name);
    if (removeEntry(top_.get(), name) == 0) {
      hasProgress_ = true;
    }
  }

  void empty(int directory, const char *shown) {
    FolderReader reader(directory, shown);
    while (const char *name = reader.next()) {
      const int error = removeEntry(directory, name);
      note(isNotEmpty(error) ? moveUp(directory, name) : error, name);
    }
  }

  int moveUp(int directory, const char *name) {
    giveAccess(directory, name);  // a directory has to be writable to get another parent
    for (;;) {
      const std::string free = ".removed-" + std::to_string(++moved_);
      if (renameat(directory, name, top_.get(), free.c_str()) == 0) {
        return 0;
      }
      if (!isNotEmpty(errno) && errno != ENOTDIR) {  // the name is not taken
        return errno;
      }
    }
  }

  void note(int error, const char *name) {
    if (error == 0) {
      hasProgress_ = true;
    } else if (firstError_ == 0) {
      firstError_ = error;
      failed_ = name;
    }
  }

  const UniqueFd top_;
  const std::string shown_;
  bool hasProgress_ = false;
  std::uint64_t moved_ = 0;
  int firstError_ = 0;
  std::string failed_;
};

}  // namespace

void removeTree(const Place &place) {
  int error = removeEntry(place.directory, place.name.c_str());
  if (isNotEmpty(error)) {
    giveAccess(place.directory, place.name.c_str());
    UniqueFd top = openDirectory(place.directory, place.name.c_str());
    if (!top) {
      failWith(errno, "cannot remove " + quoted(place.shown));
    }
    TreeRemover(std::move(top), place.shown).run();
    error = removeEntry(place.directory, place.name.c_str());
  }
  if (error != 0) {
    failWith(error, "cannot remove " + quoted(place.shown));
  }
}

}  // namespace arvl_host
