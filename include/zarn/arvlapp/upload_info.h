/// The argument of an upload.
#ifndef ZARN_ARVLAPP_UPLOAD_INFO_H_
#define ZARN_ARVLAPP_UPLOAD_INFO_H_

#include <memory>
#include <string>

#include "zarn/arvlapp/file_info.h"
#include "zarn/visibility.h"

namespace ZARN {
namespace ARVLAPP {

/// A local file for the framework to take to its side.
///
/// | field       | default            | meaning                                               |
/// |-------------|--------------------|-------------------------------------------------------|
/// | destination | empty              | path on the framework's side                          |
/// | source      | default FileInfo   | the local file; its temp flag is sent along           |
/// | percentage  | -1                 | progress of the whole job; sent when it is above 0    |
///
/// No setter checks its argument: the framework checks the request. The percentage is sent to
/// frameworks of version 2.3 and later.
///
/// A plain value with one exception: the percentage is not copied, because it belongs to the one
/// transfer that it was set for. A copy has -1, and an assignment keeps the percentage of its target. A
/// move is a copy. Not synchronised.
class ZARN_EXPORT UploadInfo {
 public:
  UploadInfo();
  UploadInfo(const UploadInfo &other);
  UploadInfo &operator=(const UploadInfo &other);
  virtual ~UploadInfo();

  /// Copies the record. The reference stays valid as long as this object does.
  void setSource(const FileInfo &source);
  const FileInfo &getSource() const;

  /// The reference stays valid as long as this object does.
  void setDestinationPath(const std::string &path);
  const std::string &getDestinationPath() const;

  void setPercentage(int percentage);
  int getPercentage() const;

 private:
  struct ZARN_LOCAL UploadInfoImpl;
  std::unique_ptr<UploadInfoImpl> impl_;
};

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_ARVLAPP_UPLOAD_INFO_H_
