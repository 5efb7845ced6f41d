#include "files/file_error.h"

#include <climits>
#include <cstring>

#include "text/utf8.h"

namespace arvl_host {

void failWith(int error, const std::string &what) {
  throw StoreError(what + ": " + std::strerror(error));
}

PathTooLong::PathTooLong(const std::string &path)
    : StoreError("cannot write " + quoted(path) +
                 ": with the path of the store it would be longer than " +
                 std::to_string(PATH_MAX - 1) + " bytes") {}

std::string quoted(const std::string &shown) {
  return "\"" + visibleText(shown) + "\"";
}

}  // namespace arvl_host
