/// Packet types of the framework protocol, their names, and the rule book of their payloads.
///
/// Both ends of the connection use this header: Agent checks every answer with it, and a stand-in for
/// the framework checks the packets of the plug-in. It only declares Json::Value: include
/// <json/value.h> to create a payload.
#ifndef ZARN_ARVLAPP_PROTOCOL_UTIL_H_
#define ZARN_ARVLAPP_PROTOCOL_UTIL_H_

#include <json/forwards.h>

#include <string>

#include "zarn/visibility.h"

namespace ZARN {
namespace ARVLAPP {

/// The type of a packet, as in the packet header (unsigned, 16 bits, big-endian).
///
/// The numbers are the wire format: they are never renumbered and never reused. A request with
/// number n is answered by the response with number n + 1. Results and completions are sent by the
/// plug-in when it ends, and are not answered.
enum PACKET_TYPE : int {
  PACKET_TYPE_NONE = 0,  ///< no packet; never sent

  PACKET_CAN_EXPORT_RESULT = 1,          ///< plug-in: completion of "can_export"
  PACKET_ESTIMATE_EXPORTION_RESULT = 2,  ///< plug-in: completion of "estimate_exportion"
  PACKET_UPLOAD_REQUEST = 3,             ///< plug-in
  PACKET_UPLOAD_RESPONSE = 4,            ///< framework
  PACKET_EXPORT_COMPLETE = 5,            ///< plug-in: completion of "export"
  PACKET_CAN_IMPORT_RESULT = 6,          ///< plug-in: completion of "can_import"
  PACKET_LIST_DIR_REQUEST = 7,           ///< plug-in
  PACKET_LIST_DIR_RESPONSE = 8,          ///< framework
  PACKET_STAT_REQUEST = 9,               ///< reserved: nobody sends it, no payload is valid
  PACKET_STAT_RESPONSE = 10,             ///< reserved, like PACKET_STAT_REQUEST
  PACKET_DOWNLOAD_REQUEST = 11,          ///< plug-in
  PACKET_DOWNLOAD_RESPONSE = 12,         ///< framework
  PACKET_EXPORT_RESULT_REQUEST = 13,     ///< plug-in
  PACKET_EXPORT_RESULT_RESPONSE = 14,    ///< framework
  PACKET_IMPORT_COMPLETE = 15,           ///< plug-in: completion of "import"
  PACKET_CREATE_DIR_REQUEST = 16,        ///< plug-in
  PACKET_CREATE_DIR_RESPONSE = 17,       ///< framework
  PACKET_SELECTED_SOURCE_REQUEST = 18,   ///< plug-in
  PACKET_SELECTED_SOURCE_RESPONSE = 19,  ///< framework
  PACKET_EXPORT_CONFIG_REQUEST = 20,     ///< plug-in
  PACKET_EXPORT_CONFIG_RESPONSE = 21,    ///< framework
  PACKET_LANGUAGE_REQUEST = 22,          ///< plug-in
  PACKET_LANGUAGE_RESPONSE = 23,         ///< framework
  PACKET_SUMMARY_RESULT = 24,            ///< plug-in: completion of "summary"
  PACKET_SET_PROGRESS_REQUEST = 25,      ///< plug-in
  PACKET_SET_PROGRESS_RESPONSE = 26,     ///< framework
};

/// The names of packet types and the rules of payloads. Stateless: any thread may call the functions at
/// any time, as long as no other thread changes the payload. Neither function blocks.
class ZARN_EXPORT Util {
 public:
  /// Returns the printable name of a packet type, for log lines and diagnostics.
  ///
  /// @param type  any value, even an unknown one from the wire
  /// @return "PACKET_TYPE_NONE" for 0; the bare name ("UPLOAD_REQUEST") for 1 to 15; the name with
  ///         its prefix ("PACKET_LANGUAGE_REQUEST") for 16 to 26. The difference is part of the
  ///         protocol. Any other value returns "invalid_packet_type" and writes one line to syslog.
  static std::string packetString(PACKET_TYPE type);

  /// Checks a payload against the rule of its packet type.
  ///
  /// @param type     any value; no payload is valid for a type outside 1 to 26 or for a stat type
  /// @param payload  the whole payload. Members that the rule does not name are ignored. Integers must
  ///                 fit a signed 32-bit number.
  /// @return true if the payload is valid. Otherwise false, after one line in syslog for the check that
  ///         failed and one for each outer check that has its own message, innermost first. Only the
  ///         stat types are refused without a line. One valid payload also writes a line: a listing request with a token writes "no member [path]", also inside a listing response.
  /// @throws Json::LogicError from JsonCpp in one case: if "success" of an export-result response is
  ///         true and "success" of its "export_result" cannot be converted to a boolean.
  static bool isValidPacket(PACKET_TYPE type, const Json::Value &payload);
};

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_ARVLAPP_PROTOCOL_UTIL_H_
