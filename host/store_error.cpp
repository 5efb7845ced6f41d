#include "store_error.h"

#include <cstring>

#include "trace/trace_text.h"

namespace arvl_host {

void failWith(int error, const std::string &what) {
  throw StoreError(what + ": " + std::strerror(error));
}

std::string quoted(const std::string &shown) {
  return "\"" + visibleText(shown) + "\"";
}

}  // namespace arvl_host
