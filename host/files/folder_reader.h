// Reads the names of a folder one by one, however many there are.
#ifndef ARVL_HOST_FILES_FOLDER_READER_H_
#define ARVL_HOST_FILES_FOLDER_READER_H_

#include <dirent.h>

#include <memory>
#include <string>

#include "files/unique_fd.h"

namespace arvl_host {

// In the order in which the file system keeps them. Throws StoreError.
class FolderReader {
 public:
  // folder may be an O_PATH descriptor; it is not kept. shown is how messages name it.
  FolderReader(int folder, std::string shown);

  // The next name, null at the end; "." and ".." are left out. Valid until the next call.
  const char *next();
  void rewind();

  int fd() const { return dirfd(dir_.get()); }

 private:
  struct Closer {
    void operator()(DIR *dir) const { closedir(dir); }
  };
  std::string shown_;
  std::unique_ptr<DIR, Closer> dir_;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_FILES_FOLDER_READER_H_
