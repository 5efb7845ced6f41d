// The rule book of payloads, in this order: predicates, member checks, the objects that several packets
// share, one rule per packet, and the table of types and rules.
//
// A rule checks its members in order, and the first check that fails ends the rule. An outer check logs
// after the inner one, so the log shows the innermost failure first.
//
// Stateless. A member is read only after its parent is known to be an object, because JsonCpp throws
// otherwise, and only by the const look-up, which never creates a member.

#include "zarn/arvlapp/protocol_util.h"

#include <json/value.h>

#include <cstddef>
#include <cstdio>
#include <initializer_list>
#include <string_view>

#include "protocol/json_members.h"
#include "protocol/packet_table.h"
#include "util/log.h"

namespace ZARN {
namespace ARVLAPP {

namespace {

// Each line of a rule has one of two forms. REQUIRE is a check with its own message. FOLLOW calls a rule
// that has already logged. Both return false from the rule if they fail. Each use is on one physical
// line, because compilers disagree about the line number of a wrapped macro call.
#define REQUIRE(condition, ...)           \
  do {                                    \
    if (!(condition)) {                   \
      return ARVL_LOG_FALSE(__VA_ARGS__); \
    }                                     \
  } while (false)
#define FOLLOW(rule) \
  do {               \
    if (!(rule)) {   \
      return false;  \
    }                \
  } while (false)

// ---- Predicates: they never log.

bool isSuccess(const Json::Value &object) {
  return object["success"].asBool();
}

// Returns the bytes of a string value without copying them.
std::string_view textOf(const Json::Value &value) {
  const char *begin = nullptr;
  const char *end = nullptr;
  value.getString(&begin, &end);
  return {begin, static_cast<std::size_t>(end - begin)};
}

// ---- Member checks: each logs its own failure. The context is the name of the calling check. A check
// of a type does not check presence: a missing member reads as null and has the wrong type.

bool hasMembers(const Json::Value &value, std::initializer_list<const char *> names) {
  REQUIRE(value.isObject(), "not a object");
  for (const char *name : names) {
    REQUIRE(value.isMember(name), "no member [%s]", name);
  }
  return true;
}

// Does the same and returns the members, for checks that run often.
bool hasMembers(const Json::Value &value, std::initializer_list<WantedMember> wanted) {
  REQUIRE(value.isObject(), "not a object");
  findMembers(value, wanted);
  for (const WantedMember &want : wanted) {
    REQUIRE(want.found != nullptr, "no member [%s]", want.name.data());
  }
  return true;
}

bool isBool(const Json::Value &member, const char *key, const char *context) {
  REQUIRE(member.isBool(), "[%s]: member [%s] is not boolean", context, key);
  return true;
}

bool isString(const Json::Value &member, const char *key, const char *context) {
  REQUIRE(member.isString(), "[%s]: member [%s] is not a string", context, key);
  return true;
}

bool isInt(const Json::Value &member, const char *key, const char *context) {
  REQUIRE(member.isInt(), "[%s]: member [%s] is not a int", context, key);
  return true;
}

bool isBoolMember(const Json::Value &value, const char *key, const char *context) {
  REQUIRE(key != nullptr && context != nullptr, "bad param");
  FOLLOW(isBool(value[key], key, context));
  return true;
}

bool isStringMember(const Json::Value &value, const char *key, const char *context) {
  REQUIRE(key != nullptr && context != nullptr, "bad param");
  FOLLOW(isString(value[key], key, context));
  return true;
}

bool isIntMember(const Json::Value &value, const char *key, const char *context) {
  REQUIRE(key != nullptr && context != nullptr, "bad param");
  FOLLOW(isInt(value[key], key, context));
  return true;
}

bool isArrayMember(const Json::Value &value, const char *key, int minimum, const char *context) {
  REQUIRE(key != nullptr && context != nullptr, "bad param");
  const Json::Value &array = value[key];
  REQUIRE(array.isArray(), "[%s]: member [%s] is not a string", context, key);  // the text is fixed, though it says string
  const int size = static_cast<int>(array.size());
  REQUIRE(size >= minimum, "[%s] error: length of array [%s][%d] is less than %d", context, key, size, minimum);
  return true;
}

// ---- Shared objects.

// The result object of a plug-in. success: bool; err_msg: optional, {section, key: string}
bool isBasicResultObjectValid(const Json::Value &value) {
  REQUIRE(hasMembers(value, {"success"}), "invalid result object");
  FOLLOW(isBoolMember(value, "success", __func__));
  if (isSuccess(value) || !value.isMember("err_msg")) {
    return true;
  }
  const Json::Value &error = value["err_msg"];
  REQUIRE(hasMembers(error, {"section", "key"}), "invalid obj [%s]", "err_msg");
  FOLLOW(isStringMember(error, "section", __func__));
  FOLLOW(isStringMember(error, "key", __func__));
  return true;
}

// The response object of the framework. success: bool; error: string, required if success is false
bool isBasicResponseObjectValid(const Json::Value &value) {
  const Json::Value *success = nullptr;
  REQUIRE(hasMembers(value, {{"success", success}}), "invalid result object");
  FOLLOW(isBool(*success, "success", __func__));
  if (success->asBool()) {
    return true;
  }
  REQUIRE(value.isMember("error"), "basic fail response without key [%s]", "error");
  FOLLOW(isStringMember(value, "error", __func__));
  return true;
}

// app_data_version: "major.minor", neither negative; text after the minor number is accepted
bool isAppDataVersionValid(const Json::Value &value, const char *context) {
  REQUIRE(context != nullptr, "bad param");
  REQUIRE(hasMembers(value, {"app_data_version"}), "%s: invalid object", context);
  FOLLOW(isStringMember(value, "app_data_version", context));
  const char *text = value["app_data_version"].asCString();
  int major = -1;
  int minor = -1;
  REQUIRE(std::sscanf(text, "%d.%d", &major, &minor) == 2 && major >= 0 && minor >= 0, "invalid %s format [%s]", "app_data_version", text);
  return true;
}

// path: absolute; nothing else is checked
bool isPathMemberValid(const Json::Value &path) {
  FOLLOW(isString(path, "path", __func__));
  const std::string_view text = textOf(path);
  REQUIRE(!text.empty() && text.front() == '/', "invalid [%s] not abs path [%s]", "path", text.data());
  return true;
}

// type: "file", "dir" or "symlink"
bool isFTypeMemberValid(const Json::Value &type) {
  FOLLOW(isString(type, "type", __func__));
  const std::string_view text = textOf(type);
  REQUIRE(text == "file" || text == "dir" || text == "symlink", "invalid fileType [%s]", text.data());
  return true;
}

// The source of a transfer: type; path; is_temp: optional, bool
bool isFileInfoSrcValid(const Json::Value &value) {
  REQUIRE(hasMembers(value, {"type", "path"}), "invalid fileinfo.%s", "source");
  REQUIRE(isFTypeMemberValid(value["type"]), "invalid fileinfo.%s.%s", "source", "type");
  REQUIRE(isPathMemberValid(value["path"]), "invalid fileinfo.%s.%s", "source", "path");
  FOLLOW(!value.isMember("is_temp") || isBoolMember(value, "is_temp", __func__));
  return true;
}

// One item of a transfer request: source; destination: {path}
bool isFileInfoValid(const Json::Value &item) {
  REQUIRE(hasMembers(item, {"source", "destination"}), "invalid fileinfo obj");
  FOLLOW(isFileInfoSrcValid(item["source"]));
  const Json::Value &destination = item["destination"];
  REQUIRE(hasMembers(destination, {"path"}), "invalid fileinfo.%s", "destination");
  REQUIRE(isPathMemberValid(destination["path"]), "invalid fileinfo.%s.%s", "destination", "path");
  return true;
}

// One item of a transfer response: source; success: bool; error: string, required if success is false.
// Unlike in the response object, the presence of "error" is not checked first.
bool isRespFileInfoValid(const Json::Value &item) {
  REQUIRE(hasMembers(item, {"source", "success"}), "invalid resp_file_info obj");
  FOLLOW(isFileInfoSrcValid(item["source"]));
  FOLLOW(isBoolMember(item, "success", __func__));
  FOLLOW(isSuccess(item) || isStringMember(item, "error", __func__));
  return true;
}

// ---- Completions: the result object and, if success is true, the members of the step.

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

// file_count, dir_count, size, block_size (the number of blocks): int
bool isEstimateExportionResultValid(const Json::Value &payload) {
  REQUIRE(isBasicResultObjectValid(payload), "invalid estimate_exportion_result");
  if (!isSuccess(payload)) {
    return true;
  }
  REQUIRE(hasMembers(payload, {"file_count", "dir_count", "size", "block_size"}), "invalid estimate_exportion object");
  FOLLOW(isIntMember(payload, "file_count", __func__));
  FOLLOW(isIntMember(payload, "dir_count", __func__));
  FOLLOW(isIntMember(payload, "size", __func__));
  FOLLOW(isIntMember(payload, "block_size", __func__));
  return true;
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
  FOLLOW(isStringMember(payload, "backup_short", __func__));
  FOLLOW(isStringMember(payload, "backup_long", __func__));
  FOLLOW(isStringMember(payload, "restore_short", __func__));
  FOLLOW(isStringMember(payload, "restore_long", __func__));
  return true;
}

// ---- The export result, for an import.

// handler, handler_type: string; result: any value
bool isExternalHandlerValid(const Json::Value &element, const char *context) {
  REQUIRE(hasMembers(element, {"handler", "handler_type", "result"}), "invalid external handler");
  FOLLOW(isStringMember(element, "handler", context));
  FOLLOW(isStringMember(element, "handler_type", context));
  return true;
}

// external_handler_result: array of at least one external handler
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
  REQUIRE(isSuccess(result), "export_result.success = false, impossible");  // JsonCpp converts any type
  REQUIRE(isAppDataVersionValid(result, __func__), "invalid success export_result_response.%s", "export_result");
  FOLLOW(!payload.isMember("external_handler_result") || isExternalHandlerResultValid(payload));
  return true;
}

// ---- Transfers: a request uploads one or more items, or downloads one. A response has its items even
// if success is false.

bool areFileInfosValid(const Json::Value &data) {
  for (Json::ArrayIndex i = 0; i < data.size(); ++i) {
    REQUIRE(isFileInfoValid(data[i]), "error: invalid data[%i]", static_cast<int>(i));
  }
  return true;
}

bool areRespFileInfosValid(const Json::Value &data) {
  for (Json::ArrayIndex i = 0; i < data.size(); ++i) {
    REQUIRE(isRespFileInfoValid(data[i]), "error: invalid data[%i]", static_cast<int>(i));
  }
  return true;
}

// data: array of at least one file-info object
bool isUploadRequestValid(const Json::Value &payload) {
  REQUIRE(hasMembers(payload, {"data"}), "invalid upload request object");
  FOLLOW(isArrayMember(payload, "data", 1, __func__));
  FOLLOW(areFileInfosValid(payload["data"]));
  return true;
}

// data: array of at least one response file-info object
bool isUploadResponseValid(const Json::Value &payload) {
  REQUIRE(isBasicResponseObjectValid(payload), "invalid upload_response");
  FOLLOW(isArrayMember(payload, "data", 1, __func__));
  FOLLOW(areRespFileInfosValid(payload["data"]));
  return true;
}

// data: array of exactly one file-info object
bool isDownloadRequestValid(const Json::Value &payload) {
  REQUIRE(hasMembers(payload, {"data"}), "invalid download request object");
  FOLLOW(isArrayMember(payload, "data", 1, __func__));
  REQUIRE(payload["data"].size() < 2, "not support multiple download yet");
  FOLLOW(areFileInfosValid(payload["data"]));
  return true;
}

// data: array of at least one response file-info object
bool isDownloadResponseValid(const Json::Value &payload) {
  REQUIRE(isBasicResponseObjectValid(payload), "invalid download_response");
  FOLLOW(isArrayMember(payload, "data", 1, __func__));
  FOLLOW(areRespFileInfosValid(payload["data"]));
  return true;
}

// ---- Directories: a response repeats its request, even if success is false.

// path: absolute
bool isCreateDirRequestValid(const Json::Value &payload) {
  REQUIRE(hasMembers(payload, {"path"}), "invalid create dir request object");
  REQUIRE(isPathMemberValid(payload["path"]), "invalid create dir request: [%s]", "path");
  return true;
}

// request: create-directory request
bool isCreateDirResponseValid(const Json::Value &payload) {
  REQUIRE(isBasicResponseObjectValid(payload), "invalid create dir response");
  REQUIRE(hasMembers(payload, {"request"}), "invalid create dir response: no [%s]", "request");
  REQUIRE(isCreateDirRequestValid(payload["request"]), "invalid create dir response: invalid [%s]", "request");
  return true;
}

constexpr int kMaxListRecords = 1024;

// path: absolute, or request_id: string, the token of the previous page; max_record: optional, 0 to 1024.
// The path is looked for first, so a request with a token logs that it has no path.
bool isListDirRequestValid(const Json::Value &payload) {
  REQUIRE(hasMembers(payload, {"path"}) || hasMembers(payload, {"request_id"}), "invalid listDir request object");
  const bool hasPath = payload.isMember("path");
  const bool hasToken = payload.isMember("request_id");
  REQUIRE(!hasPath || !hasToken, "invalid listDir request, assign %s and %s concurrently", "path", "request_id");
  REQUIRE(!hasPath || isPathMemberValid(payload["path"]), "invalid %s", "path");
  FOLLOW(!hasToken || isStringMember(payload, "request_id", __func__));
  if (!payload.isMember("max_record")) {
    return true;
  }
  FOLLOW(isIntMember(payload, "max_record", __func__));
  const int records = payload["max_record"].asInt();
  REQUIRE(records >= 0 && records <= kMaxListRecords, "invalid listDir request, %s over limit (%d v.s. %d)", "max_record", records, kMaxListRecords);
  return true;
}

// path: absolute; type; mtime, size: int
bool isListDirEntryValid(const Json::Value &entry) {
  const Json::Value *path = nullptr;
  const Json::Value *type = nullptr;
  const Json::Value *mtime = nullptr;
  const Json::Value *size = nullptr;
  REQUIRE(hasMembers(entry, {{"path", path}, {"type", type}, {"mtime", mtime}, {"size", size}}), "invalid listDir entry");
  FOLLOW(isInt(*mtime, "mtime", __func__));
  FOLLOW(isInt(*size, "size", __func__));
  REQUIRE(isFTypeMemberValid(*type), "invalid %s.%s", "entry_list", "type");
  REQUIRE(isPathMemberValid(*path), "invalid %s.%s", "entry_list", "path");
  return true;
}

// request: list-directory request. If success is true: entry_list: array of entries; list_complete: bool;
// request_id: string, required unless the page is the last
bool isListDirResponseValid(const Json::Value &payload) {
  REQUIRE(isBasicResponseObjectValid(payload), "invalid listDir response object");
  REQUIRE(hasMembers(payload, {"request"}), "invalid listDir response object, no [%s]", "request");
  REQUIRE(isListDirRequestValid(payload["request"]), "invalid listDirResponse.request object");
  if (!isSuccess(payload)) {
    return true;
  }
  REQUIRE(hasMembers(payload, {"entry_list", "list_complete"}), "invalid success listDir response object");
  FOLLOW(isArrayMember(payload, "entry_list", 0, __func__));
  FOLLOW(isBoolMember(payload, "list_complete", __func__));
  const Json::Value &entries = payload["entry_list"];
  // Iterating is faster than a look-up by index, but skips the gaps of an array.
  Json::ArrayIndex index = 0;
  for (auto entry = entries.begin(); entry != entries.end(); ++entry, ++index) {
    FOLLOW(isListDirEntryValid(entry.index() == index ? *entry : Json::Value::nullSingleton()));
  }
  if (payload["list_complete"].asBool()) {
    return true;
  }
  REQUIRE(hasMembers(payload, {"request_id"}), "invalid incomplete listDir response");
  FOLLOW(isStringMember(payload, "request_id", __func__));
  return true;
}

// ---- Queries.

// Each element of the array: {object: string}
bool areSourcesValid(const Json::Value &payload, const char *key, const char *context) {
  const Json::Value &sources = payload[key];
  for (Json::ArrayIndex i = 0; i < sources.size(); ++i) {
    REQUIRE(hasMembers(sources[i], {"object"}), "error: [%s] invalid object", key);
    REQUIRE(isStringMember(sources[i], "object", context), "error: [%s] invalid data[%i]", key, static_cast<int>(i));
  }
  return true;
}

// backup_folders, backup_apps: array of sources, even if success is false
bool isSelectedSourceResponseValid(const Json::Value &payload) {
  REQUIRE(isBasicResponseObjectValid(payload), "invalid get select source response");
  REQUIRE(isArrayMember(payload, "backup_folders", 0, __func__), "folder is not array");
  FOLLOW(areSourcesValid(payload, "backup_folders", __func__));
  REQUIRE(isArrayMember(payload, "backup_apps", 0, __func__), "app is not array");
  FOLLOW(areSourcesValid(payload, "backup_apps", __func__));
  return true;
}

// export_config: any value
bool isExportConfigResponseValid(const Json::Value &payload) {
  REQUIRE(isBasicResponseObjectValid(payload), "invalid export_config_response");
  REQUIRE(!isSuccess(payload) || hasMembers(payload, {"export_config"}), "invalid success export_config_response, no [%s]", "export_config");
  return true;
}

// language: string
bool isLanguageResponseValid(const Json::Value &payload) {
  REQUIRE(isBasicResponseObjectValid(payload), "invalid language_response");
  if (!isSuccess(payload)) {
    return true;
  }
  REQUIRE(hasMembers(payload, {"language"}), "invalid success language_response, no [%s]", "language");
  REQUIRE(isStringMember(payload, "language", __func__), "error: [%s] invalid data", "language");
  return true;
}

// ---- Progress.

// progress_stage: string; progress_percentage: int, 0 to 100
bool isSetProgressRequestValid(const Json::Value &payload) {
  REQUIRE(hasMembers(payload, {"progress_stage", "progress_percentage"}), "invalid progress object");
  FOLLOW(isStringMember(payload, "progress_stage", __func__));
  FOLLOW(isIntMember(payload, "progress_percentage", __func__));
  // As an unsigned number, a negative percentage is far above 100.
  const auto percentage = static_cast<unsigned>(payload["progress_percentage"].asInt());
  REQUIRE(percentage <= 100, "progress percentage should be 0 ~ 100");
  return true;
}

// The only rule that logs the payload.
bool isSetProgressResponseValid(const Json::Value &payload) {
  REQUIRE(isBasicResponseObjectValid(payload), "invalid progress_response [%s]", payload.toStyledString().c_str());
  return true;
}

// ---- Types whose payload is not checked.

bool isNonePacketValid(const Json::Value & /*payload*/) {
  return ARVL_LOG_FALSE("invalid packet type %d", PACKET_TYPE_NONE);
}

// The stat packets are reserved: refused without a log line.
bool isStatPacketValid(const Json::Value & /*payload*/) {
  return false;
}

// Requests without content: any payload is accepted and ignored.
bool isContentFreeRequestValid(const Json::Value & /*payload*/) {
  return true;
}

#undef FOLLOW
#undef REQUIRE

struct RuleRow {
  PACKET_TYPE type;
  bool (*isValid)(const Json::Value &payload);
};

constexpr RuleRow kRules[] = {
    {PACKET_TYPE_NONE, isNonePacketValid},
    {PACKET_CAN_EXPORT_RESULT, isCanExportResultValid},
    {PACKET_ESTIMATE_EXPORTION_RESULT, isEstimateExportionResultValid},
    {PACKET_UPLOAD_REQUEST, isUploadRequestValid},
    {PACKET_UPLOAD_RESPONSE, isUploadResponseValid},
    {PACKET_EXPORT_COMPLETE, isExportCompleteValid},
    {PACKET_CAN_IMPORT_RESULT, isCanImportResultValid},
    {PACKET_LIST_DIR_REQUEST, isListDirRequestValid},
    {PACKET_LIST_DIR_RESPONSE, isListDirResponseValid},
    {PACKET_STAT_REQUEST, isStatPacketValid},
    {PACKET_STAT_RESPONSE, isStatPacketValid},
    {PACKET_DOWNLOAD_REQUEST, isDownloadRequestValid},
    {PACKET_DOWNLOAD_RESPONSE, isDownloadResponseValid},
    {PACKET_EXPORT_RESULT_REQUEST, isContentFreeRequestValid},
    {PACKET_EXPORT_RESULT_RESPONSE, isExportResultResponseValid},
    {PACKET_IMPORT_COMPLETE, isImportCompleteValid},
    {PACKET_CREATE_DIR_REQUEST, isCreateDirRequestValid},
    {PACKET_CREATE_DIR_RESPONSE, isCreateDirResponseValid},
    {PACKET_SELECTED_SOURCE_REQUEST, isContentFreeRequestValid},
    {PACKET_SELECTED_SOURCE_RESPONSE, isSelectedSourceResponseValid},
    {PACKET_EXPORT_CONFIG_REQUEST, isContentFreeRequestValid},
    {PACKET_EXPORT_CONFIG_RESPONSE, isExportConfigResponseValid},
    {PACKET_LANGUAGE_REQUEST, isContentFreeRequestValid},
    {PACKET_LANGUAGE_RESPONSE, isLanguageResponseValid},
    {PACKET_SUMMARY_RESULT, isSummaryCompleteValid},
    {PACKET_SET_PROGRESS_REQUEST, isSetProgressRequestValid},
    {PACKET_SET_PROGRESS_RESPONSE, isSetProgressResponseValid},
};

constexpr bool rulesFollowTheEnum() {
  int type = PACKET_TYPE_NONE;
  for (const RuleRow &row : kRules) {
    if (row.type != type++) {
      return false;
    }
  }
  return type == kPacketTypeCount;
}
static_assert(rulesFollowTheEnum(), "one rule per packet type, in the order of the enum");

}  // namespace

std::string Util::packetString(PACKET_TYPE type) {
  const PacketInfo *packet = findPacket(type);
  if (packet == nullptr) {
    ARVL_LOG_ERROR("invalid packet type %d", type);
    return "invalid_packet_type";
  }
  return packet->name;
}

bool Util::isValidPacket(PACKET_TYPE type, const Json::Value &payload) {
  if (findPacket(type) == nullptr) {
    return ARVL_LOG_FALSE("invalid packet type %d", type);
  }
  return kRules[type].isValid(payload);
}

}  // namespace ARVLAPP
}  // namespace ZARN
