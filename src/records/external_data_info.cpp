#include "zarn/arvlapp/external_data_info.h"

#include <json/value.h>

namespace ZARN {
namespace ARVLAPP {

struct ExternalDataInfo::ExternalDataInfoImpl {
  std::string name;
  std::string type;
  Json::Value result;
};

ExternalDataInfo::ExternalDataInfo() : impl_(std::make_unique<ExternalDataInfoImpl>()) {}

ExternalDataInfo::ExternalDataInfo(const ExternalDataInfo &other) : ExternalDataInfo() {
  *this = other;
}

ExternalDataInfo &ExternalDataInfo::operator=(const ExternalDataInfo &other) {
  if (this != &other) {
    *impl_ = *other.impl_;
  }
  return *this;
}

ExternalDataInfo::~ExternalDataInfo() = default;

void ExternalDataInfo::setExternalHandleJson(const Json::Value &element) {
  impl_->name = element["handler"].asString();
  impl_->type = element["handler_type"].asString();
  impl_->result = element["result"];
}

const std::string &ExternalDataInfo::getExternalHandleName() const {
  return impl_->name;
}

const std::string &ExternalDataInfo::getExternalHandleType() const {
  return impl_->type;
}

const Json::Value &ExternalDataInfo::getExternalHandleResult() const {
  return impl_->result;
}

}  // namespace ARVLAPP
}  // namespace ZARN
