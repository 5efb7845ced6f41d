#include "zarn/arvlapp/selected_source_info.h"

#include <json/value.h>

namespace ZARN {
namespace ARVLAPP {

namespace {

using Names = std::list<std::string>;

// Empties the list before it reads the payload, because JsonCpp throws if that is not an object.
void readNames(const Json::Value &payload, const char *key, Names &names) {
  names.clear();
  const Json::Value &sources = payload[key];
  for (Json::ArrayIndex i = 0; i < sources.size(); ++i) {
    names.push_back(sources[i]["object"].asString());
  }
}

// Adds a separator only after some text, so that an empty name at the front gets none.
std::string join(const Names &names) {
  std::string text;
  for (const std::string &name : names) {
    if (!text.empty()) {
      text += ", ";
    }
    text += name;
  }
  return text;
}

}  // namespace

struct SelectedSourceInfo::SelectedSourceInfoImpl {
  Names folders;
  Names apps;
};

SelectedSourceInfo::SelectedSourceInfo() : impl_(std::make_unique<SelectedSourceInfoImpl>()) {}

SelectedSourceInfo::SelectedSourceInfo(const SelectedSourceInfo &other) : SelectedSourceInfo() {
  *this = other;
}

SelectedSourceInfo &SelectedSourceInfo::operator=(const SelectedSourceInfo &other) {
  if (this != &other) {
    *impl_ = *other.impl_;
  }
  return *this;
}

SelectedSourceInfo::~SelectedSourceInfo() = default;

void SelectedSourceInfo::setSelectedSourceJson(const Json::Value &payload) {
  readNames(payload, "backup_folders", impl_->folders);
  readNames(payload, "backup_apps", impl_->apps);
}

const std::list<std::string> &SelectedSourceInfo::getSelectedFolders() const {
  return impl_->folders;
}

const std::list<std::string> &SelectedSourceInfo::getSelectedApps() const {
  return impl_->apps;
}

std::string SelectedSourceInfo::getDisplayString() const {
  return "Folders: [" + join(impl_->folders) + "], Apps: [" + join(impl_->apps) + "]";
}

}  // namespace ARVLAPP
}  // namespace ZARN
