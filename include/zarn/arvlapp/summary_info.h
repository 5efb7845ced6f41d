/// The four texts that a "summary" plug-in shows to the user.
#ifndef ZARN_ARVLAPP_SUMMARY_INFO_H_
#define ZARN_ARVLAPP_SUMMARY_INFO_H_

#include <memory>
#include <string>

#include "zarn/visibility.h"

namespace ZARN {
namespace ARVLAPP {

/// A summary of a backup and of a restore of the application, for people to read.
///
/// | field         | default | meaning                     |
/// |---------------|---------|-----------------------------|
/// | backup short  | empty   | one line about the backup   |
/// | backup long   | empty   | the backup in full          |
/// | restore short | empty   | one line about the restore  |
/// | restore long  | empty   | the restore in full         |
///
/// Any bytes are stored as given, UTF-8 or not. The summary completion reports a failure unless all
/// four texts are non-empty (see Agent::setSummaryInfo).
///
/// A plain value: a copy shares nothing with its original, and a move is a copy. Not synchronised.
class ZARN_EXPORT SummaryInfo {
 public:
  SummaryInfo();
  SummaryInfo(const SummaryInfo &other);
  SummaryInfo &operator=(const SummaryInfo &other);
  virtual ~SummaryInfo();

  /// Replaces all four texts at once. Nothing is checked.
  void setSummaryInfo(const std::string &backupShort, const std::string &backupLong,
                      const std::string &restoreShort, const std::string &restoreLong);

  /// The references stay valid until the record is assigned to, set again or destroyed.
  const std::string &getBackupShort() const;
  const std::string &getBackupLong() const;
  const std::string &getRestoreShort() const;
  const std::string &getRestoreLong() const;

 private:
  struct ZARN_LOCAL SummaryInfoImpl;
  std::unique_ptr<SummaryInfoImpl> impl_;
};

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_ARVLAPP_SUMMARY_INFO_H_
