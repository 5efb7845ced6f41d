#include "zarn/arvlapp/upload_info.h"

#include "records/transfer_descriptor.h"

namespace ZARN {
namespace ARVLAPP {

struct UploadInfo::UploadInfoImpl : TransferDescriptor {};

UploadInfo::UploadInfo() : impl_(std::make_unique<UploadInfoImpl>()) {}

UploadInfo::UploadInfo(const UploadInfo &other) : UploadInfo() {
  *this = other;
}

UploadInfo &UploadInfo::operator=(const UploadInfo &other) {
  if (this != &other) {
    *impl_ = *other.impl_;
  }
  return *this;
}

UploadInfo::~UploadInfo() = default;

void UploadInfo::setSource(const FileInfo &source) {
  impl_->source = source;
}

const FileInfo &UploadInfo::getSource() const {
  return impl_->source;
}

void UploadInfo::setDestinationPath(const std::string &path) {
  impl_->destinationPath = path;
}

const std::string &UploadInfo::getDestinationPath() const {
  return impl_->destinationPath;
}

void UploadInfo::setPercentage(int percentage) {
  impl_->percentage = percentage;
}

int UploadInfo::getPercentage() const {
  return impl_->percentage;
}

}  // namespace ARVLAPP
}  // namespace ZARN
