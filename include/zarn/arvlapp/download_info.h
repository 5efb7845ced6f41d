/// The argument of a download.
#ifndef ZARN_ARVLAPP_DOWNLOAD_INFO_H_
#define ZARN_ARVLAPP_DOWNLOAD_INFO_H_

#include <memory>
#include <string>

#include "zarn/arvlapp/file_info.h"
#include "zarn/visibility.h"

namespace ZARN {
namespace ARVLAPP {

/// A file for the framework to deliver to this machine.
///
/// | field       | default            | meaning                                               |
/// |-------------|--------------------|-------------------------------------------------------|
/// | destination | empty              | local path, or the local directory to deliver into    |
/// | source      | default FileInfo   | the file, as the framework names it                   |
/// | percentage  | -1                 | progress of the whole job; sent when it is above 0    |
///
/// No setter checks its argument: the framework checks the request. The percentage is sent to
/// frameworks of version 2.3 and later.
///
/// A plain value with one exception: the percentage is not copied, because it belongs to the one
/// transfer that it was set for. A copy has -1, and an assignment keeps the percentage of its target. A
/// move is a copy. Not synchronised.
class ZARN_EXPORT DownloadInfo {
 public:
  DownloadInfo();
  DownloadInfo(const DownloadInfo &other);
  DownloadInfo &operator=(const DownloadInfo &other);
  virtual ~DownloadInfo();

  /// Copies the record. The reference stays valid as long as this object does.
  void setSource(const FileInfo &source);
  const FileInfo &getSource() const;

  /// The reference stays valid as long as this object does.
  void setDestinationPath(const std::string &path);
  const std::string &getDestinationPath() const;

  void setPercentage(int percentage);
  int getPercentage() const;

 private:
  struct ZARN_LOCAL DownloadInfoImpl;
  std::unique_ptr<DownloadInfoImpl> impl_;
};

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_ARVLAPP_DOWNLOAD_INFO_H_
