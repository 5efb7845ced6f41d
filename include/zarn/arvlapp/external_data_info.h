/// The result of an external handler for an export. This header only declares Json::Value: include
/// <json/value.h> to use it.
#ifndef ZARN_ARVLAPP_EXTERNAL_DATA_INFO_H_
#define ZARN_ARVLAPP_EXTERNAL_DATA_INFO_H_

#include <json/forwards.h>

#include <memory>
#include <string>

#include "zarn/visibility.h"

namespace ZARN {
namespace ARVLAPP {

/// The result of one external handler, kept with the result of an export.
///
/// | field  | default | meaning                                                       |
/// |--------|---------|---------------------------------------------------------------|
/// | name   | empty   | the name of the handler                                       |
/// | type   | empty   | the kind of handler                                           |
/// | result | null    | any JSON value; handler and plug-in agree on its meaning      |
///
/// A plain value: a copy shares nothing with its original, and a move is a copy. Not synchronised.
class ZARN_EXPORT ExternalDataInfo {
 public:
  ExternalDataInfo();
  ExternalDataInfo(const ExternalDataInfo &other);
  ExternalDataInfo &operator=(const ExternalDataInfo &other);
  virtual ~ExternalDataInfo();

  /// Replaces all three fields by the members "handler", "handler_type" and "result" of an element
  /// of an export result, as Agent::getExternalHandleResult does.
  ///
  /// @param element  an object or null; a missing member sets the field's default. An element of a
  ///                 payload that Util::isValidPacket has accepted throws nothing.
  /// @throws Json::LogicError from JsonCpp if the name or the type is an array or an object; the fields
  ///         read before the error are replaced
  void setExternalHandleJson(const Json::Value &element);

  /// The references stay valid until the record is assigned to, filled again or destroyed.
  const std::string &getExternalHandleName() const;
  const std::string &getExternalHandleType() const;
  const Json::Value &getExternalHandleResult() const;

 private:
  struct ZARN_LOCAL ExternalDataInfoImpl;
  std::unique_ptr<ExternalDataInfoImpl> impl_;
};

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_ARVLAPP_EXTERNAL_DATA_INFO_H_
