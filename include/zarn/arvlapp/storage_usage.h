/// Storage accounting for the estimate of an export.
#ifndef ZARN_ARVLAPP_STORAGE_USAGE_H_
#define ZARN_ARVLAPP_STORAGE_USAGE_H_

#include <cstdint>
#include <memory>
#include <string>

#include "zarn/visibility.h"

namespace ZARN {
namespace ARVLAPP {

/// Accumulator of files, directories, bytes and disk blocks.
///
/// | counter         | default | unit                                                    |
/// |-----------------|---------|---------------------------------------------------------|
/// | file count      | 0       | regular files and symbolic links                        |
/// | directory count | 0       | directories                                             |
/// | size            | 0       | bytes: st_size of every counted entry                   |
/// | block count     | 0       | 512-byte blocks: st_blocks of every counted entry       |
///
/// Any number of addOne and addDirRecursive calls add up; a call that fails keeps what it had
/// counted. The same file counts once for every name it is met under (hard links are not told
/// apart), and symbolic links count as themselves and are never followed.
///
/// A plain value: a copy never shares anything with its original, and a move is a copy. Not
/// synchronised, and only one addDirRecursive may run at a time in the whole process, because the
/// POSIX tree walker hands its callback no argument of the caller's.
class ZARN_EXPORT StorageUsage {
 public:
  StorageUsage();
  StorageUsage(const StorageUsage &other);
  StorageUsage &operator=(const StorageUsage &other);
  virtual ~StorageUsage();

  /// Counts one entry of the file system, as lstat(2) sees it.
  ///
  /// @param path  absolute, or relative to the working directory
  /// @return false, with nothing counted and one line in syslog, if the entry cannot be examined or
  ///         is neither a regular file, a directory nor a symbolic link
  bool addOne(const std::string &path);

  /// Counts a directory, itself included, and everything below it on the same file system.
  ///
  /// Devices, FIFOs and sockets are passed over silently; other file systems mounted below are neither
  /// counted nor entered. A directory whose reading fails midway is taken for read: nftw(3), which
  /// walks the tree, does not tell. Blocks meanwhile, with up to 512 descriptors open.
  ///
  /// @param path  absolute; a start that is not a directory is counted as one entry
  /// @return false, with the reason in syslog, if the path is not absolute or does not exist, or if
  ///         a directory below it cannot be read or an entry cannot be examined: the walk ends there
  bool addDirRecursive(const std::string &path);

  /// Returns the number of regular files and symbolic links. The getters are not const, because their
  /// exported names are fixed.
  int64_t getFileCount();
  /// Returns the number of directories.
  int64_t getDirCount();
  /// Returns the size in bytes.
  int64_t getSizeByte();
  /// Returns the number of 512-byte blocks.
  int64_t getBlockCount();

 private:
  struct ZARN_LOCAL StorageUsageImpl;
  std::unique_ptr<StorageUsageImpl> impl_;
};

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_ARVLAPP_STORAGE_USAGE_H_
