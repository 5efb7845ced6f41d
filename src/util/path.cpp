#include "zarn/backup/path.h"

namespace ZARN {
namespace Backup {

std::string Path::basename(const std::string &path) {
  // Without a "/" rfind returns npos, and npos + 1 is 0: the whole path.
  return path.substr(path.rfind('/') + 1);
}

}  // namespace Backup
}  // namespace ZARN
