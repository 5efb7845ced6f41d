#include "zarn/arvlapp/summary_info.h"

namespace ZARN {
namespace ARVLAPP {

struct SummaryInfo::SummaryInfoImpl {
  std::string backupShort;
  std::string backupLong;
  std::string restoreShort;
  std::string restoreLong;
};

SummaryInfo::SummaryInfo() : impl_(std::make_unique<SummaryInfoImpl>()) {}

SummaryInfo::SummaryInfo(const SummaryInfo &other) : SummaryInfo() {
  *this = other;
}

SummaryInfo &SummaryInfo::operator=(const SummaryInfo &other) {
  if (this != &other) {
    *impl_ = *other.impl_;
  }
  return *this;
}

SummaryInfo::~SummaryInfo() = default;

void SummaryInfo::setSummaryInfo(const std::string &backupShort, const std::string &backupLong,
                                 const std::string &restoreShort, const std::string &restoreLong) {
  // Copies all texts before it replaces any: the arguments may be this record's own texts.
  *impl_ = SummaryInfoImpl{backupShort, backupLong, restoreShort, restoreLong};
}

const std::string &SummaryInfo::getBackupShort() const {
  return impl_->backupShort;
}

const std::string &SummaryInfo::getBackupLong() const {
  return impl_->backupLong;
}

const std::string &SummaryInfo::getRestoreShort() const {
  return impl_->restoreShort;
}

const std::string &SummaryInfo::getRestoreLong() const {
  return impl_->restoreLong;
}

}  // namespace ARVLAPP
}  // namespace ZARN
