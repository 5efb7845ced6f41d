// Names an entry of the file system by its directory.
#ifndef ARVL_HOST_FILES_PLACE_H_
#define ARVL_HOST_FILES_PLACE_H_

#include <string>

namespace arvl_host {

// An entry, given by a descriptor of its directory and its name. Messages name it `shown`.
struct Place {
  int directory;
  std::string name;
  std::string shown;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_FILES_PLACE_H_
