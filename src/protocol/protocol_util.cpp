// Packet names and the rule book of payloads.
//
// In this order: predicates and member checks, the objects that several packets share, one rule per
// packet, and one table of type, name and rule. A rule reads top to bottom like the table it
// implements; the first line that fails logs its own text and ends the rule. An enclosing check adds
// its line after the inner one, so that the log tells the failure innermost first.
//
// Stateless. Members are read through the const look-up only, which never creates one, and never
// before the value that holds them is known to be an object: JsonCpp throws otherwise.

#include "zarn/arvlapp/protocol_util.h"

#include <json/value.h>

#include <cstdio>
#include <initializer_list>

#include "util/log.h"

namespace ZARN {
namespace ARVLAPP {

namespace {

// Leaves the rule with the failed check's own text and line.
#define REQUIRE(condition, ...)           \
  do {                                    \
    if (!(condition)) {                   \
      return ARVL_LOG_FALSE(__VA_ARGS__); \
    }                                     \
  } while (false)

// Each check stands on one physical line, so that every compiler reports that line.
// clang-format off

// ---- Predicates: they never log.

bool isSuccess(const Json::Value &object) {
  return object["success"].asBool();
}

// ---- Member checks: each logs its own failure. The context is the name of the calling check. Types
// are tested without a look at presence: a missing member reads as null and fails the type.

bool hasMembers(const Json::Value &value, std::initializer_list<const char *> names) {
  REQUIRE(value.isObject(), "not a object");
  for (const char *name : names) {
    REQUIRE(value.isMember(name), "no member [%s]", name);
  }
  return true;
}

bool isBoolMember(const Json::Value &value, const char *key, const char *context) {
  REQUIRE(key != nullptr && context != nullptr, "bad param");
  REQUIRE(value[key].isBool(), "[%s]: member [%s] is not boolean", context, key);
  return true;
}

bool isStringMember(const Json::Value &value, const char *key, const char *context) {
  REQUIRE(key != nullptr && context != nullptr, "bad param");
  REQUIRE(value[key].isString(), "[%s]: member [%s] is not a string", context, key);
  return true;
}

bool isIntMember(const Json::Value &value, const char *key, const char *context) {
  REQUIRE(key != nullptr && context != nullptr, "bad param");
  REQUIRE(value[key].isInt(), "[%s]: member [%s] is not a int", context, key);
  return true;
}

bool isArrayMember(const Json::Value &value, const char *key, int minimum, const char *context) {
  REQUIRE(key != nullptr && context != nullptr, "bad param");
  const Json::Value &array = value[key];
  REQUIRE(array.isArray(), "[%s]: member [%s] is not a string", context, key);  // the protocol's own wording
  const int size = static_cast<int>(array.size());
  REQUIRE(size >= minimum, "[%s] error: length of array [%s][%d] is less than %d", context, key, size, minimum);
  return true;
}

// ---- Shared objects.

// What a plug-in reports at its end: success: bool; err_msg: optional, {section, key: string}.
bool isBasicResultObjectValid(const Json::Value &value) {
  REQUIRE(hasMembers(value, {"success"}), "invalid result object");
  if (!isBoolMember(value, "success", __func__)) {
    return false;
  }
  if (isSuccess(value) || !value.isMember("err_msg")) {
    return true;
  }
  const Json::Value &error = value["err_msg"];
  REQUIRE(hasMembers(error, {"section", "key"}), "invalid obj [%s]", "err_msg");
  return isStringMember(error, "section", __func__) && isStringMember(error, "key", __func__);
}

// What the framework answers: success: bool; error: string, required of a failure.
bool isBasicResponseObjectValid(const Json::Value &value) {
  REQUIRE(hasMembers(value, {"success"}), "invalid result object");
  if (!isBoolMember(value, "success", __func__)) {
    return false;
  }
  if (isSuccess(value)) {
    return true;
  }
  REQUIRE(value.isMember("error"), "basic fail response without key [%s]", "error");
  return isStringMember(value, "error", __func__);
}

// app_data_version: "major.minor", neither negative. Text after the minor number is accepted.
bool isAppDataVersionValid(const Json::Value &value, const char *context) {
  REQUIRE(context != nullptr, "bad param");
  REQUIRE(hasMembers(value, {"app_data_version"}), "%s: invalid object", context);
  if (!isStringMember(value, "app_data_version", context)) {
    return false;
  }
  const char *text = value["app_data_version"].asCString();
  int major = -1;
  int minor = -1;
  REQUIRE(std::sscanf(text, "%d.%d", &major, &minor) == 2 && major >= 0 && minor >= 0, "invalid %s format [%s]", "app_data_version", text);
  return true;
}

// ---- Completions: the result object; of a success, the members of the step as well.

bool isCanExportResultValid(const Json::Value &payload) {
  REQUIRE(isBasicResultObjectValid(payload), "invalid can_export_result");
  return true;
}

bool isCanImportResultValid(const Json::Value &payload) {
  REQUIRE(isBasicResultObjectValid(payload), "invalid can_import_result");
  return true;
}

bool isImportCompleteValid(const Json::Value &payload) {
  REQUIRE(isBasicResultObjectValid(payload), "invalid import_complete");
  return true;
}

// file_count, dir_count, size, block_size (a number of blocks, in spite of its name): int
bool isEstimateExportionResultValid(const Json::Value &payload) {
  REQUIRE(isBasicResultObjectValid(payload), "invalid estimate_exportion_result");
  if (!isSuccess(payload)) {
    return true;
  }
  REQUIRE(hasMembers(payload, {"file_count", "dir_count", "size", "block_size"}), "invalid estimate_exportion object");
  return isIntMember(payload, "file_count", __func__) && isIntMember(payload, "dir_count", __func__) &&
         isIntMember(payload, "size", __func__) && isIntMember(payload, "block_size", __func__);
}

// app_data_version: version text
bool isExportCompleteValid(const Json::Value &payload) {
  REQUIRE(isBasicResultObjectValid(payload), "invalid export_complete");
  if (!isSuccess(payload)) {
    return true;
  }
  REQUIRE(isAppDataVersionValid(payload, __func__), "invalid success export_complete");
  return true;
}

// backup_short, backup_long, restore_short, restore_long: string
bool isSummaryCompleteValid(const Json::Value &payload) {
  REQUIRE(isBasicResultObjectValid(payload), "invalid summary_complete");
  if (!isSuccess(payload)) {
    return true;
  }
  REQUIRE(hasMembers(payload, {"backup_short", "backup_long", "restore_short", "restore_long"}), "invalid summary object");
  return isStringMember(payload, "backup_short", __func__) && isStringMember(payload, "backup_long", __func__) &&
         isStringMember(payload, "restore_short", __func__) && isStringMember(payload, "restore_long", __func__);
}

// ---- The export result, handed to an import run.

// handler, handler_type: string; result: any value
bool isExternalHandlerValid(const Json::Value &element, const char *context) {
  REQUIRE(hasMembers(element, {"handler", "handler_type", "result"}), "invalid external handler");
  return isStringMember(element, "handler", context) && isStringMember(element, "handler_type", context);
}

// external_handler_result: array of at least one handler's result
bool isExternalHandlerResultValid(const Json::Value &payload) {
  REQUIRE(isArrayMember(payload, "external_handler_result", 1, __func__), "invalid external handler result");
  const Json::Value &handlers = payload["external_handler_result"];
  for (Json::ArrayIndex i = 0; i < handlers.size(); ++i) {
    REQUIRE(isExternalHandlerValid(handlers[i], __func__), "invalid external handler result");
  }
  return true;
}

// export_result: {success: reads as true, app_data_version: version text};
// external_handler_result: optional
bool isExportResultResponseValid(const Json::Value &payload) {
  REQUIRE(isBasicResponseObjectValid(payload), "invalid export_result_response");
  if (!isSuccess(payload)) {
    return true;
  }
  REQUIRE(hasMembers(payload, {"export_result"}), "invalid success export_result_response, no [%s]", "export_result");
  const Json::Value &result = payload["export_result"];
  REQUIRE(hasMembers(result, {"success", "app_data_version"}), "invalid success export_result_response.%s", "export_result");
  REQUIRE(isSuccess(result), "export_result.success = false, impossible");  // converts whatever is there
  REQUIRE(isAppDataVersionValid(result, __func__), "invalid success export_result_response.%s", "export_result");
  return !payload.isMember("external_handler_result") || isExternalHandlerResultValid(payload);
}

// ---- Types whose payload is not examined.

bool isNonePacketValid(const Json::Value & /*payload*/) {
  return ARVL_LOG_FALSE("invalid packet type %d", PACKET_TYPE_NONE);
}

// The stat exchange is reserved: refused without a word.
bool isStatPacketValid(const Json::Value & /*payload*/) {
  return false;
}

// Requests without content: whatever comes along is ignored.
bool isContentFreeRequestValid(const Json::Value & /*payload*/) {
  return true;
}

bool isPacketWithoutRuleValid(const Json::Value & /*payload*/) {
  return ARVL_LOG_FALSE("no rule for packets of this type yet");
}

// clang-format on

#undef REQUIRE

struct PacketRow {
  PACKET_TYPE type;
  const char *name;
  bool (*isValid)(const Json::Value &payload);
};

// The older types print without a prefix, the later ones with it; other programs read these names.
constexpr PacketRow kPackets[] = {
    {PACKET_TYPE_NONE, "PACKET_TYPE_NONE", isNonePacketValid},
    {PACKET_CAN_EXPORT_RESULT, "CAN_EXPORT_RESULT", isCanExportResultValid},
    {PACKET_ESTIMATE_EXPORTION_RESULT, "ESTIMATE_EXPORTION_RESULT", isEstimateExportionResultValid},
    {PACKET_UPLOAD_REQUEST, "UPLOAD_REQUEST", isPacketWithoutRuleValid},
    {PACKET_UPLOAD_RESPONSE, "UPLOAD_RESPONSE", isPacketWithoutRuleValid},
    {PACKET_EXPORT_COMPLETE, "EXPORT_COMPLETE", isExportCompleteValid},
    {PACKET_CAN_IMPORT_RESULT, "CAN_IMPORT_RESULT", isCanImportResultValid},
    {PACKET_LIST_DIR_REQUEST, "LIST_DIR_REQUEST", isPacketWithoutRuleValid},
    {PACKET_LIST_DIR_RESPONSE, "LIST_DIR_RESPONSE", isPacketWithoutRuleValid},
    {PACKET_STAT_REQUEST, "STAT_REQUEST", isStatPacketValid},
    {PACKET_STAT_RESPONSE, "STAT_RESPONSE", isStatPacketValid},
    {PACKET_DOWNLOAD_REQUEST, "DOWNLOAD_REQUEST", isPacketWithoutRuleValid},
    {PACKET_DOWNLOAD_RESPONSE, "DOWNLOAD_RESPONSE", isPacketWithoutRuleValid},
    {PACKET_EXPORT_RESULT_REQUEST, "EXPORT_RESULT_REQUEST", isContentFreeRequestValid},
    {PACKET_EXPORT_RESULT_RESPONSE, "EXPORT_RESULT_RESPONSE", isExportResultResponseValid},
    {PACKET_IMPORT_COMPLETE, "IMPORT_COMPLETE", isImportCompleteValid},
    {PACKET_CREATE_DIR_REQUEST, "PACKET_CREATE_DIR_REQUEST", isPacketWithoutRuleValid},
    {PACKET_CREATE_DIR_RESPONSE, "PACKET_CREATE_DIR_RESPONSE", isPacketWithoutRuleValid},
    {PACKET_SELECTED_SOURCE_REQUEST, "PACKET_SELECTED_SOURCE_REQUEST", isContentFreeRequestValid},
    {PACKET_SELECTED_SOURCE_RESPONSE, "PACKET_SELECTED_SOURCE_RESPONSE", isPacketWithoutRuleValid},
    {PACKET_EXPORT_CONFIG_REQUEST, "PACKET_EXPORT_CONFIG_REQUEST", isContentFreeRequestValid},
    {PACKET_EXPORT_CONFIG_RESPONSE, "PACKET_EXPORT_CONFIG_RESPONSE", isPacketWithoutRuleValid},
    {PACKET_LANGUAGE_REQUEST, "PACKET_LANGUAGE_REQUEST", isContentFreeRequestValid},
    {PACKET_LANGUAGE_RESPONSE, "PACKET_LANGUAGE_RESPONSE", isPacketWithoutRuleValid},
    {PACKET_SUMMARY_RESULT, "PACKET_SUMMARY_RESULT", isSummaryCompleteValid},
    {PACKET_SET_PROGRESS_REQUEST, "PACKET_SET_PROGRESS_REQUEST", isPacketWithoutRuleValid},
    {PACKET_SET_PROGRESS_RESPONSE, "PACKET_SET_PROGRESS_RESPONSE", isPacketWithoutRuleValid},
};

constexpr bool rowsFollowTheEnum() {
  int type = PACKET_TYPE_NONE;
  for (const PacketRow &row : kPackets) {
    if (row.type != type++) {
      return false;
    }
  }
  return type == PACKET_SET_PROGRESS_RESPONSE + 1;
}
static_assert(rowsFollowTheEnum(), "one row per packet type, in the order of the enum");

// Null for a number that is no packet type, negative ones included.
const PacketRow *findPacket(PACKET_TYPE type) {
  const auto index = static_cast<unsigned>(type);
  return index <= PACKET_SET_PROGRESS_RESPONSE ? &kPackets[index] : nullptr;
}

}  // namespace

std::string Util::packetString(PACKET_TYPE type) {
  const PacketRow *packet = findPacket(type);
  if (packet == nullptr) {
    ARVL_LOG_ERROR("invalid packet type %d", type);
    return "invalid_packet_type";
  }
  return packet->name;
}

bool Util::isValidPacket(PACKET_TYPE type, const Json::Value &payload) {
  const PacketRow *packet = findPacket(type);
  if (packet == nullptr) {
    return ARVL_LOG_FALSE("invalid packet type %d", type);
  }
  return packet->isValid(payload);
}

}  // namespace ARVLAPP
}  // namespace ZARN
