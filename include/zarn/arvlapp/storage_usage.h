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
/// The counts of all addOne and addDirRecursive calls add up. A call that fails keeps what it has
/// counted. A file with several hard links counts once per link. Symbolic links count as themselves and
/// are never followed.
///
/// A plain value: a copy shares nothing with its original, and a move is a copy. Not synchronised. Only
/// one addDirRecursive may run at a time in the whole process, because nftw(3) cannot pass an argument
/// to its callback.
class ZARN_EXPORT StorageUsage {
 public:
  StorageUsage();
  StorageUsage(const StorageUsage &other);
  StorageUsage &operator=(const StorageUsage &other);
  virtual ~StorageUsage();

  /// Counts one entry of the file system, as lstat(2) sees it.
  ///
  /// @param path  absolute, or relative to the working directory
  /// @return false, with nothing counted and one line in syslog, if lstat fails or the entry is neither
  ///         a regular file, a directory nor a symbolic link
  bool addOne(const std::string &path);

  /// Counts a directory, itself included, and everything below it on the same file system.
  ///
  /// Skips devices, FIFOs and sockets without a line, and does not count or enter other file systems
  /// mounted below. Does not notice if reading a directory fails midway, because nftw(3) does not report
  /// it. Blocks until the walk ends, with up to 512 descriptors open.
  ///
  /// @param path  absolute; a start that is not a directory is counted as one entry
  /// @return false, with the reason in syslog, if the path is not absolute or does not exist. The walk
  ///         also stops with false at a directory that cannot be read and at an entry that lstat fails
  ///         on.
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
