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

namespace arvl_host {

namespace {

// Removes a file, a link or an empty directory. Returns 0 or the error.
int removeEntry(int folder, const char *name) {
  if (unlinkat(folder, name, 0) == 0 || errno == ENOENT) {
    return 0;
  }
  const int error = errno;
  // POSIX has EPERM for a directory, Linux EISDIR.
  if (error != EISDIR && error != EPERM) {
    return error;
  }
  if (unlinkat(folder, name, AT_REMOVEDIR) == 0) {
    return 0;
  }
  return errno == ENOTDIR ? error : errno;
}

bool isNotEmpty(int error) {
  return error == ENOTEMPTY || error == EEXIST;
}

// A directory that denies access keeps what it holds. If this fails, its removal fails and reports why.
void giveAccess(int folder, const char *name) {
  fchmodat(folder, name, S_IRWXU, AT_SYMLINK_NOFOLLOW);
}

UniqueFd openFolder(int folder, const char *name) {
  return UniqueFd(openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
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
    const UniqueFd folder = openFolder(top_.get(), name);
    if (!folder) {
      note(errno, name);
      return;
    }
    empty(folder.get(), name);
    if (removeEntry(top_.get(), name) == 0) {
      hasProgress_ = true;
    }
  }

  void empty(int folder, const char *shown) {
    FolderReader reader(folder, shown);
    while (const char *name = reader.next()) {
      const int error = removeEntry(folder, name);
      note(isNotEmpty(error) ? moveUp(folder, name) : error, name);
    }
  }

  int moveUp(int folder, const char *name) {
    giveAccess(folder, name);  // a directory has to be writable to get another parent
    for (;;) {
      const std::string free = ".removed-" + std::to_string(++moved_);
      if (renameat(folder, name, top_.get(), free.c_str()) == 0) {
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
  int error = removeEntry(place.folder, place.name.c_str());
  if (isNotEmpty(error)) {
    giveAccess(place.folder, place.name.c_str());
    UniqueFd top = openFolder(place.folder, place.name.c_str());
    if (!top) {
      failWith(errno, "cannot remove " + quoted(place.shown));
    }
    TreeRemover(std::move(top), place.shown).run();
    error = removeEntry(place.folder, place.name.c_str());
  }
  if (error != 0) {
    failWith(error, "cannot remove " + quoted(place.shown));
  }
}

}  // namespace arvl_host
