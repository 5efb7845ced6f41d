// Copies entries of the file system between two folders, by descriptor, so that nothing that is swapped
// in meanwhile leads elsewhere.
#ifndef ARVL_HOST_FILE_COPY_H_
#define ARVL_HOST_FILE_COPY_H_

#include <string>

#include "unique_fd.h"

namespace arvl_host {

// An entry by the folder that holds it; shown is how messages name it.
struct Place {
  int folder;
  std::string name;
  std::string shown;
};

// Copies a regular file with its mode and times, by way of a temporary name. file is open for reading.
// Throws StoreError, as all here.
void copyFile(int file, const std::string &shown, const Place &to);

// Copies whatever is there: a file, a link (as itself) or a tree. Anything else is refused unopened.
void copyEntry(const Place &from, const Place &to);

// Copies what a folder holds into another.
void copyFolder(int from, const std::string &shown, int to, const std::string &shownTo);

// Opens for reading what an O_PATH descriptor stands for: the entry that has been examined, and no
// other.
UniqueFd reopen(int path, int flags, const std::string &shown);

[[noreturn]] void failWith(int error, const std::string &what);

}  // namespace arvl_host

#endif  // ARVL_HOST_FILE_COPY_H_
