// Reads the names in a directory one by one.
#ifndef ARVL_HOST_FILES_FOLDER_READER_H_
#define ARVL_HOST_FILES_FOLDER_READER_H_

#include <dirent.h>

#include <memory>
#include <string>

#include "files/unique_fd.h"

namespace arvl_host {

// Returns the names in the order of the file system. Owns a descriptor of the directory. Throws StoreError.
class FolderReader {
 public:
  // `directory` may be an O_PATH descriptor and may be closed afterwards. Messages name it `shown`.
  FolderReader(int directory, std::string shown);

  // Returns the next name except "." and "..", or null at the end. It is valid until the next call.
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
