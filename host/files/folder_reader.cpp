#include "files/folder_reader.h"

#include <fcntl.h>

#include <cerrno>
#include <string_view>
#include <utility>

#include "files/file_error.h"

namespace arvl_host {

FolderReader::FolderReader(int directory, std::string shown) : shown_(std::move(shown)) {
  UniqueFd own(openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));  // with its own offset
  dir_.reset(own ? fdopendir(own.get()) : nullptr);
  if (dir_ == nullptr) {
    failWith(errno, "cannot read the directory " + quoted(shown_));
  }
  own.release();
}

const char *FolderReader::next() {
  for (;;) {
    errno = 0;
    const dirent *entry = readdir(dir_.get());
    if (entry == nullptr) {
      if (errno != 0) {
        failWith(errno, "cannot read the directory " + quoted(shown_));
      }
      return nullptr;
    }
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") {
      return entry->d_name;
    }
  }
}

void FolderReader::rewind() {
  rewinddir(dir_.get());
}

}  // namespace arvl_host
