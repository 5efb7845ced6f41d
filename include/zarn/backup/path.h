/// Path helpers of the utility library (libzarnbackup-util).
#ifndef ZARN_BACKUP_PATH_H_
#define ZARN_BACKUP_PATH_H_

#include <string>

#include "zarn/visibility.h"

namespace ZARN {
namespace Backup {

/// Functions on path names. None of them accesses the file system.
class ZARN_EXPORT Path {
 public:
  /// Returns the last component of a path: the text after its final "/".
  ///
  /// @param path  any text, absolute or relative, without a length limit
  /// @return the whole text when it holds no "/"; empty when it ends in "/" or is empty itself
  ///
  /// Fails only if memory runs out (std::bad_alloc). Any thread may call it at any time.
  static std::string basename(const std::string &path);
};

}  // namespace Backup
}  // namespace ZARN

#endif  // ZARN_BACKUP_PATH_H_
