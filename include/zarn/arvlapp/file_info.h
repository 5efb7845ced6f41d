/// One entry of the file system on the framework's side.
#ifndef ZARN_ARVLAPP_FILE_INFO_H_
#define ZARN_ARVLAPP_FILE_INFO_H_

#include <memory>
#include <string>

#include "zarn/visibility.h"

namespace ZARN {
namespace ARVLAPP {

/// An entry of a listing, or the source of a transfer.
///
/// | field | default | meaning                                                              |
/// |-------|---------|----------------------------------------------------------------------|
/// | mtime | 0       | modification time, seconds since the Unix epoch                      |
/// | size  | -1      | bytes; -1: not known                                                 |
/// | path  | empty   | as the framework names it; for an upload's source, a local path      |
/// | type  | none    | regular file, directory or symbolic link                             |
/// | temp  | false   | a temporary file; sent with an upload                                |
///
/// Agent::listDir sets all fields but temp. A transfer sends path and type, and an upload also temp. No
/// setter checks its argument.
///
/// A plain value: a copy shares nothing with its original, and a move is a copy. Not synchronised.
class ZARN_EXPORT FileInfo {
 public:
  FileInfo();
  FileInfo(const FileInfo &other);
  FileInfo &operator=(const FileInfo &other);
  virtual ~FileInfo();

  void setPath(const std::string &path);
  std::string getPath() const;

  void setSizeByte(long bytes);
  long getSizeByte() const;

  void setMtime(long seconds);
  long getMtime() const;

  /// Set the type. It cannot be set back to "none".
  void setRegType();
  void setDirType();
  void setSymlinkType();

  bool isRegType() const;
  bool isDirType() const;
  bool isSymlinkType() const;

  void setTemp(bool temp);
  bool isTemp() const;

  /// Returns the type as the protocol spells it: "none", "file", "dir" or "symlink"; "err" for any other
  /// code, which no setter stores.
  std::string getTypeStr() const;

 private:
  struct ZARN_LOCAL FileInfoImpl;
  std::unique_ptr<FileInfoImpl> impl_;
};

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_ARVLAPP_FILE_INFO_H_
