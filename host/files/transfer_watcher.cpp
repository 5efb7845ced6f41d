#include "files/transfer_watcher.h"

#include "files/file_error.h"

namespace arvl_host {

std::string skippedText(const std::string &path) {
  return quoted(path) + " vanished before it was copied, and is skipped";
}

}  // namespace arvl_host
