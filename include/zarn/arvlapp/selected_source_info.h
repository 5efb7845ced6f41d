/// The user's selection for a backup. This header only declares Json::Value: include <json/value.h> to
/// use it.
#ifndef ZARN_ARVLAPP_SELECTED_SOURCE_INFO_H_
#define ZARN_ARVLAPP_SELECTED_SOURCE_INFO_H_

#include <json/forwards.h>

#include <list>
#include <memory>
#include <string>

#include "zarn/visibility.h"

namespace ZARN {
namespace ARVLAPP {

/// The folders and applications that the user selected, by the names that the framework uses.
///
/// | field   | default | meaning                                                       |
/// |---------|---------|---------------------------------------------------------------|
/// | folders | empty   | in the framework's order; duplicates and empty names are kept |
/// | apps    | empty   | likewise                                                      |
///
/// A plain value: a copy shares nothing with its original, and a move is a copy. Not synchronised.
class ZARN_EXPORT SelectedSourceInfo {
 public:
  SelectedSourceInfo();
  SelectedSourceInfo(const SelectedSourceInfo &other);
  SelectedSourceInfo &operator=(const SelectedSourceInfo &other);
  virtual ~SelectedSourceInfo();

  /// Replaces both lists by the names in a selected-source response, as Agent::getSelectedSource
  /// does: first the folders, then the applications.
  ///
  /// @param payload  an object or null. "backup_folders" and "backup_apps" are arrays of objects, whose
  ///                 members "object" are the names. A missing array counts as empty, a missing "object"
  ///                 as an empty name. A payload that Util::isValidPacket has accepted throws nothing.
  /// @throws Json::LogicError from JsonCpp for a payload of another form. The current list then holds
  ///         the names read so far, and the applications are unchanged if they were not reached.
  void setSelectedSourceJson(const Json::Value &payload);

  /// The references stay valid until the record is assigned to, filled again or destroyed.
  const std::list<std::string> &getSelectedFolders() const;
  const std::list<std::string> &getSelectedApps() const;

  /// Returns both lists as one line for a log or a summary: "Folders: [docs, photos], Apps: [mail]".
  /// Names are neither quoted nor escaped.
  std::string getDisplayString() const;

 private:
  struct ZARN_LOCAL SelectedSourceInfoImpl;
  std::unique_ptr<SelectedSourceInfoImpl> impl_;
};

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_ARVLAPP_SELECTED_SOURCE_INFO_H_
