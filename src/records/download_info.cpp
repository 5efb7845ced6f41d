#include "zarn/arvlapp/download_info.h"

#include "records/transfer_descriptor.h"

namespace ZARN {
namespace ARVLAPP {

struct DownloadInfo::DownloadInfoImpl : TransferDescriptor {};

DownloadInfo::DownloadInfo() : impl_(std::make_unique<DownloadInfoImpl>()) {}

DownloadInfo::DownloadInfo(const DownloadInfo &other) : DownloadInfo() {
  *this = other;
}

DownloadInfo &DownloadInfo::operator=(const DownloadInfo &other) {
  if (this != &other) {
    *impl_ = *other.impl_;
  }
  return *this;
}

DownloadInfo::~DownloadInfo() = default;

void DownloadInfo::setSource(const FileInfo &source) {
  impl_->source = source;
}

const FileInfo &DownloadInfo::getSource() const {
  return impl_->source;
}

void DownloadInfo::setDestinationPath(const std::string &path) {
  impl_->destinationPath = path;
}

const std::string &DownloadInfo::getDestinationPath() const {
  return impl_->destinationPath;
}

void DownloadInfo::setPercentage(int percentage) {
  impl_->percentage = percentage;
}

int DownloadInfo::getPercentage() const {
  return impl_->percentage;
}

}  // namespace ARVLAPP
}  // namespace ZARN
