// The rules of the six completions and of the export result that an import receives.

#include <gtest/gtest.h>
#include <json/value.h>

#include "support/log_capture.h"
#include "support/rule_case.h"
#include "zarn/arvlapp/protocol_util.h"

namespace {

using namespace ZARN::ARVLAPP;
using namespace arvl_test;

constexpr Verdict kValid = Verdict::kValid;
constexpr Verdict kInvalid = Verdict::kInvalid;

using Messages = std::vector<std::string>;

Messages operator+(Messages messages, const std::string &last) {
  messages.push_back(last);
  return messages;
}

// ---- The result object, the same in all six completions.

struct Completion {
  PACKET_TYPE type;
  const char *wrapper;  // the line that each adds when its result object is invalid
};

const Completion kCompletions[] = {
    {PACKET_CAN_EXPORT_RESULT, "invalid can_export_result"},
    {PACKET_ESTIMATE_EXPORTION_RESULT, "invalid estimate_exportion_result"},
    {PACKET_EXPORT_COMPLETE, "invalid export_complete"},
    {PACKET_CAN_IMPORT_RESULT, "invalid can_import_result"},
    {PACKET_IMPORT_COMPLETE, "invalid import_complete"},
    {PACKET_SUMMARY_RESULT, "invalid summary_complete"},
};

void checkAllCompletions(const std::vector<RuleCase> &cases) {
  for (const Completion &completion : kCompletions) {
    SCOPED_TRACE(Util::packetString(completion.type));
    std::vector<RuleCase> wrapped = cases;
    for (RuleCase &row : wrapped) {
      if (row.verdict == kInvalid) {
        row.messages = row.messages + completion.wrapper;
      }
    }
    checkRule(completion.type, wrapped);
  }
}

TEST(ResultObject, IsAnObject) {
  const Messages messages = {"not a object", "invalid result object"};
  checkAllCompletions({
      {"null", kInvalid, messages},
      {"[]", kInvalid, messages},
      {R"([{"success": true}])", kInvalid, messages},
      {R"("success")", kInvalid, messages},
      {"true", kInvalid, messages},
      {"1", kInvalid, messages},
      {"1.5", kInvalid, messages},
  });
}

TEST(ResultObject, HasABooleanSuccess) {
  const Messages missing = {"no member [success]", "invalid result object"};
  const Messages wrongType = {"[isBasicResultObjectValid]: member [success] is not boolean"};
  checkAllCompletions({
      {"{}", kInvalid, missing},
      {R"({"Success": true})", kInvalid, missing},
      {R"({"success\u0000": true})", kInvalid, missing},
      {R"({"err_msg": 5})", kInvalid, missing},
      {R"({"success": null})", kInvalid, wrongType},
      {R"({"success": 1})", kInvalid, wrongType},
      {R"({"success": 0.0})", kInvalid, wrongType},
      {R"({"success": "true"})", kInvalid, wrongType},
      {R"({"success": []})", kInvalid, wrongType},
      {R"({"success": {}})", kInvalid, wrongType},
      {R"({"success": "true", "err_msg": 5})", kInvalid, wrongType},
  });
}

TEST(ResultObject, NeedsNoReasonForAFailure) {
  checkAllCompletions({
      {R"({"success": false})", kValid, {}},
      {R"({"success": false, "other": [1, {"success": "no"}]})", kValid, {}},
  });
}

TEST(ResultObject, HasAReasonOfSectionAndKey) {
  const Messages notAnObject = {"not a object", "invalid obj [err_msg]"};
  const Messages noSection = {"no member [section]", "invalid obj [err_msg]"};
  const Messages noKey = {"no member [key]", "invalid obj [err_msg]"};
  checkAllCompletions({
      {R"({"success": false, "err_msg": {"section": "s", "key": "k"}})", kValid, {}},
      {R"({"success": false, "err_msg": {"section": "", "key": ""}})", kValid, {}},
      {R"({"success": false, "err_msg": {"section": "s", "key": "k", "more": 1}})", kValid, {}},
      {R"({"success": false, "err_msg": null})", kInvalid, notAnObject},
      {R"({"success": false, "err_msg": false})", kInvalid, notAnObject},
      {R"({"success": false, "err_msg": 5})", kInvalid, notAnObject},
      {R"({"success": false, "err_msg": 5.5})", kInvalid, notAnObject},
      {R"({"success": false, "err_msg": "disk full"})", kInvalid, notAnObject},
      {R"({"success": false, "err_msg": ["s", "k"]})", kInvalid, notAnObject},
      {R"({"success": false, "err_msg": {}})", kInvalid, noSection},
      {R"({"success": false, "err_msg": {"key": "k"}})", kInvalid, noSection},
      {R"({"success": false, "err_msg": {"key": 5}})", kInvalid, noSection},
      {R"({"success": false, "err_msg": {"section": "a"}})", kInvalid, noKey},
      {R"({"success": false, "err_msg": {"section": 5}})", kInvalid, noKey},
  });
}

TEST(ResultObject, HasStringsInItsReason) {
  const Messages section = {"[isBasicResultObjectValid]: member [section] is not a string"};
  const Messages key = {"[isBasicResultObjectValid]: member [key] is not a string"};
  checkAllCompletions({
      {R"({"success": false, "err_msg": {"section": null, "key": "k"}})", kInvalid, section},
      {R"({"success": false, "err_msg": {"section": 1, "key": "k"}})", kInvalid, section},
      {R"({"success": false, "err_msg": {"section": ["s"], "key": "k"}})", kInvalid, section},
      {R"({"success": false, "err_msg": {"section": 1, "key": 2}})", kInvalid, section},
      {R"({"success": false, "err_msg": {"section": "s", "key": null}})", kInvalid, key},
      {R"({"success": false, "err_msg": {"section": "s", "key": true}})", kInvalid, key},
      {R"({"success": false, "err_msg": {"section": "s", "key": {}}})", kInvalid, key},
  });
}

// ---- Completions that consist of a result object only.

TEST(CompletionWithoutContent, NeedsNothingButSuccess) {
  for (const PACKET_TYPE type :
       {PACKET_CAN_EXPORT_RESULT, PACKET_CAN_IMPORT_RESULT, PACKET_IMPORT_COMPLETE}) {
    checkRule(type, {
                        {R"({"success": true})", kValid, {}},
                        {R"({"success": true, "other": null})", kValid, {}},
                        {R"({"success": true, "err_msg": 5})", kValid, {}},
                        {R"({"success": true, "err_msg": {"section": 1}})", kValid, {}},
                    });
  }
}

// ---- Estimate.

Messages noCount(const std::string &key) {
  return {"no member [" + key + "]", "invalid estimate_exportion object"};
}

Messages countIsNoInt(const std::string &key) {
  return {"[isEstimateExportionResultValid]: member [" + key + "] is not a int"};
}

TEST(Estimate, OfASuccessHasFourCounts) {
  checkRule(PACKET_ESTIMATE_EXPORTION_RESULT,
            {
                {R"({"success": true, "file_count": 1, "dir_count": 2, "size": 3,
                     "block_size": 4})",
                 kValid,
                 {}},
                {R"({"success": true, "file_count": 0, "dir_count": 0, "size": 0, "block_size": 0,
                     "err_msg": 5, "other": {}})",
                 kValid,
                 {}},
                {R"({"success": true})", kInvalid, noCount("file_count")},
                {R"({"success": true, "dir_count": 2, "size": 3, "block_size": 4})", kInvalid,
                 noCount("file_count")},
                {R"({"success": true, "file_count": 1, "size": 3, "block_size": 4})", kInvalid,
                 noCount("dir_count")},
                {R"({"success": true, "file_count": 1, "dir_count": 2, "block_size": 4})", kInvalid,
                 noCount("size")},
                {R"({"success": true, "file_count": 1, "dir_count": 2, "size": 3})", kInvalid,
                 noCount("block_size")},
            });
}

TEST(Estimate, OfAFailureNeedsNoCounts) {
  checkRule(PACKET_ESTIMATE_EXPORTION_RESULT,
            {
                {R"({"success": false})", kValid, {}},
                {R"({"success": false, "size": "x"})", kValid, {}},
            });
}

TEST(Estimate, ReportsTheFirstMissingCount) {
  checkRule(
      PACKET_ESTIMATE_EXPORTION_RESULT,
      {
          {R"({"success": true, "file_count": 1})", kInvalid, noCount("dir_count")},
          {R"({"success": true, "file_count": 1, "dir_count": 2})", kInvalid, noCount("size")},
          {R"({"success": true, "block_size": 4})", kInvalid, noCount("file_count")},
      });
}

TEST(Estimate, IsCheckedForAllCountsBeforeTheirTypes) {
  checkRule(PACKET_ESTIMATE_EXPORTION_RESULT,
            {
                {R"({"success": true, "file_count": "x", "size": "x", "block_size": "x"})",
                 kInvalid, noCount("dir_count")},
                {R"({"success": true, "file_count": "x", "dir_count": "x", "size": "x"})", kInvalid,
                 noCount("block_size")},
            });
}

TEST(Estimate, ReportsTheFirstCountThatIsNotAnInt) {
  checkRule(PACKET_ESTIMATE_EXPORTION_RESULT,
            {
                {R"({"success": true, "file_count": "1", "dir_count": null, "size": [],
                     "block_size": {}})",
                 kInvalid, countIsNoInt("file_count")},
                {R"({"success": true, "file_count": 1, "dir_count": null, "size": [],
                     "block_size": {}})",
                 kInvalid, countIsNoInt("dir_count")},
                {R"({"success": true, "file_count": 1, "dir_count": 2, "size": [],
                     "block_size": {}})",
                 kInvalid, countIsNoInt("size")},
                {R"({"success": true, "file_count": 1, "dir_count": 2, "size": 3,
                     "block_size": {}})",
                 kInvalid, countIsNoInt("block_size")},
            });
}

TEST(Estimate, AcceptsCountsThatFitASigned32BitNumber) {
  const std::vector<std::pair<std::string, Verdict>> numbers = {
      {"2147483647", kValid},
      {"-2147483648", kValid},
      {"-1", kValid},
      {"50.0", kValid},
      {"2147483647.0", kValid},
      {"-2147483648.0", kValid},
      {"5e1", kValid},
      {"2147483648", kInvalid},
      {"-2147483649", kInvalid},
      {"3000000000", kInvalid},
      {"4294967296", kInvalid},
      {"9223372036854775807", kInvalid},
      {"18446744073709551615", kInvalid},
      {"1e300", kInvalid},
      {"2147483648.0", kInvalid},
      {"50.5", kInvalid},
      {"true", kInvalid},
      {"null", kInvalid},
      {R"("50")", kInvalid},
      {"[50]", kInvalid},
      {R"({"count": 50})", kInvalid},
  };
  const std::vector<std::string> keys = {"file_count", "dir_count", "size", "block_size"};
  for (const std::string &key : keys) {
    for (const auto &[number, verdict] : numbers) {
      std::string payload = R"({"success": true)";
      for (const std::string &each : keys) {
        payload += ", \"" + each + "\": " + (each == key ? number : "7");
      }
      checkRule(PACKET_ESTIMATE_EXPORTION_RESULT,
                {{payload + "}", verdict, verdict == kValid ? Messages{} : countIsNoInt(key)}});
    }
  }
}

// ---- Application data version.

const std::vector<std::string> kVersions = {
    "1.0",  "0.0",  "1.2.3", "1.0.7",    "2.0beta",   "2147483647.2147483647",
    "1.0",  " 1.0", "\t1.0", "1. 0",     "+1.+2",     "007.010",
    "-0.0", "1.0 ", "1.0%s", "1.0-rc.2", "1.0\\u0000"};

// The text in a payload, and as the log shows it: up to a NUL.
const std::vector<std::pair<std::string, std::string>> kNoVersions = {{"", ""},
                                                                      {"1", "1"},
                                                                      {"a.b", "a.b"},
                                                                      {"-1.0", "-1.0"},
                                                                      {"1.-1", "1.-1"},
                                                                      {"-1.-1", "-1.-1"},
                                                                      {"1.", "1."},
                                                                      {".5", ".5"},
                                                                      {".", "."},
                                                                      {"1 .0", "1 .0"},
                                                                      {"1,0", "1,0"},
                                                                      {"1..0", "1..0"},
                                                                      {"v1.0", "v1.0"},
                                                                      {"0x1.0", "0x1.0"},
                                                                      {"1.x", "1.x"},
                                                                      {"%d.%d", "%d.%d"},
                                                                      {"%s%n", "%s%n"},
                                                                      {"one\\ntwo", "one\ntwo"},
                                                                      {"1\\u0000.0", "1"},
                                                                      {"\\u00001.0", ""}};

const std::vector<std::string> kNoTexts = {"null", "true", "1", "1.0", "[]", R"(["1.0"])", "{}"};

std::string exportComplete(const std::string &version) {
  return R"({"success": true, "app_data_version": )" + version + "}";
}

TEST(ExportComplete, AcceptsTwoNumbersSeparatedByAFullStop) {
  for (const std::string &version : kVersions) {
    checkRule(PACKET_EXPORT_COMPLETE, {{exportComplete('"' + version + '"'), kValid, {}}});
  }
}

TEST(ExportComplete, RefusesEveryOtherVersionText) {
  for (const auto &[version, shown] : kNoVersions) {
    checkRule(
        PACKET_EXPORT_COMPLETE,
        {{exportComplete('"' + version + '"'),
          kInvalid,
          {"invalid app_data_version format [" + shown + "]", "invalid success export_complete"}}});
  }
}

TEST(ExportComplete, RefusesAVersionThatIsNotAString) {
  for (const std::string &value : kNoTexts) {
    checkRule(PACKET_EXPORT_COMPLETE,
              {{exportComplete(value),
                kInvalid,
                {"[isExportCompleteValid]: member [app_data_version] is not a string",
                 "invalid success export_complete"}}});
  }
}

TEST(ExportComplete, OfASuccessHasAVersion) {
  checkRule(PACKET_EXPORT_COMPLETE,
            {
                {R"({"success": true})",
                 kInvalid,
                 {"no member [app_data_version]", "isExportCompleteValid: invalid object",
                  "invalid success export_complete"}},
                {R"({"success": true, "app_data_version": "1.0", "err_msg": 5})", kValid, {}},
            });
}

TEST(ExportComplete, OfAFailureNeedsNoVersion) {
  checkRule(PACKET_EXPORT_COMPLETE,
            {
                {R"({"success": false})", kValid, {}},
                {R"({"success": false, "app_data_version": 5})", kValid, {}},
            });
}

// ---- Summary.

Messages noText(const std::string &key) {
  return {"no member [" + key + "]", "invalid summary object"};
}

Messages textIsNoString(const std::string &key) {
  return {"[isSummaryCompleteValid]: member [" + key + "] is not a string"};
}

TEST(Summary, OfASuccessHasFourStrings) {
  checkRule(PACKET_SUMMARY_RESULT,
            {
                {R"({"success": true, "backup_short": "a", "backup_long": "b",
                     "restore_short": "c", "restore_long": "d"})",
                 kValid,
                 {}},
                {R"({"success": true, "backup_short": "", "backup_long": "", "restore_short": "",
                     "restore_long": "", "err_msg": 5})",
                 kValid,
                 {}},
                {R"({"success": true, "backup_short": "100%s\u0000", "backup_long": "ä\n",
                     "restore_short": "c", "restore_long": "d"})",
                 kValid,
                 {}},
                {R"({"success": true})", kInvalid, noText("backup_short")},
                {R"({"success": true, "backup_long": "b", "restore_short": "c",
                     "restore_long": "d"})",
                 kInvalid, noText("backup_short")},
                {R"({"success": true, "backup_short": "a", "restore_short": "c",
                     "restore_long": "d"})",
                 kInvalid, noText("backup_long")},
                {R"({"success": true, "backup_short": "a", "backup_long": "b",
                     "restore_long": "d"})",
                 kInvalid, noText("restore_short")},
                {R"({"success": true, "backup_short": "a", "backup_long": "b",
                     "restore_short": "c"})",
                 kInvalid, noText("restore_long")},
            });
}

TEST(Summary, OfAFailureNeedsNoStrings) {
  checkRule(PACKET_SUMMARY_RESULT, {
                                       {R"({"success": false})", kValid, {}},
                                       {R"({"success": false, "backup_short": 5})", kValid, {}},
                                   });
}

TEST(Summary, ReportsTheFirstMissingString) {
  checkRule(PACKET_SUMMARY_RESULT,
            {
                {R"({"success": true, "backup_short": "a"})", kInvalid, noText("backup_long")},
                {R"({"success": true, "backup_short": "a", "backup_long": "b"})", kInvalid,
                 noText("restore_short")},
                {R"({"success": true, "restore_long": "d"})", kInvalid, noText("backup_short")},
            });
}

TEST(Summary, IsCheckedForAllStringsBeforeTheirTypes) {
  checkRule(PACKET_SUMMARY_RESULT,
            {
                {R"({"success": true, "backup_short": 5, "backup_long": 5, "restore_long": 5})",
                 kInvalid, noText("restore_short")},
                {R"({"success": true, "backup_short": 5, "backup_long": 5, "restore_short": 5})",
                 kInvalid, noText("restore_long")},
            });
}

TEST(Summary, ReportsTheFirstMemberThatIsNotAString) {
  checkRule(PACKET_SUMMARY_RESULT,
            {
                {R"({"success": true, "backup_short": null, "backup_long": 5, "restore_short": [],
                     "restore_long": {}})",
                 kInvalid, textIsNoString("backup_short")},
                {R"({"success": true, "backup_short": "a", "backup_long": 5, "restore_short": [],
                     "restore_long": {}})",
                 kInvalid, textIsNoString("backup_long")},
                {R"({"success": true, "backup_short": "a", "backup_long": "b",
                     "restore_short": [], "restore_long": {}})",
                 kInvalid, textIsNoString("restore_short")},
                {R"({"success": true, "backup_short": "a", "backup_long": "b",
                     "restore_short": "c", "restore_long": {}})",
                 kInvalid, textIsNoString("restore_long")},
            });
}

// ---- Export result response: the response object.

const char kInvalidResponse[] = "invalid export_result_response";

TEST(ExportResultResponse, IsAnObject) {
  const Messages messages = {"not a object", "invalid result object", kInvalidResponse};
  checkRule(PACKET_EXPORT_RESULT_RESPONSE, {
                                               {"null", kInvalid, messages},
                                               {"[]", kInvalid, messages},
                                               {R"("text")", kInvalid, messages},
                                               {"true", kInvalid, messages},
                                               {"5", kInvalid, messages},
                                           });
}

TEST(ExportResultResponse, HasABooleanSuccess) {
  const Messages missing = {"no member [success]", "invalid result object", kInvalidResponse};
  const Messages wrongType = {"[isBasicResponseObjectValid]: member [success] is not boolean",
                              kInvalidResponse};
  checkRule(PACKET_EXPORT_RESULT_RESPONSE,
            {
                {"{}", kInvalid, missing},
                {R"({"error": 5, "export_result": 5})", kInvalid, missing},
                {R"({"success": null})", kInvalid, wrongType},
                {R"({"success": 1})", kInvalid, wrongType},
                {R"({"success": "true"})", kInvalid, wrongType},
                {R"({"success": [], "error": 5})", kInvalid, wrongType},
                {R"({"success": {}})", kInvalid, wrongType},
            });
}

TEST(ExportResultResponse, HasAnErrorTextWhenItFails) {
  const Messages missing = {"basic fail response without key [error]", kInvalidResponse};
  const Messages wrongType = {"[isBasicResponseObjectValid]: member [error] is not a string",
                              kInvalidResponse};
  checkRule(
      PACKET_EXPORT_RESULT_RESPONSE,
      {
          {R"({"success": false, "error": "x"})", kValid, {}},
          {R"({"success": false, "error": ""})", kValid, {}},
          {R"({"success": false, "error": "x", "export_result": 5,
                     "external_handler_result": []})",
           kValid,
           {}},
          {R"({"success": false})", kInvalid, missing},
          {R"({"success": false, "err_msg": {"section": "s", "key": "k"}})", kInvalid, missing},
          {R"({"success": false, "error": null})", kInvalid, wrongType},
          {R"({"success": false, "error": 5})", kInvalid, wrongType},
          {R"({"success": false, "error": false})", kInvalid, wrongType},
          {R"({"success": false, "error": ["x"]})", kInvalid, wrongType},
          {R"({"success": false, "error": {"text": "x"}})", kInvalid, wrongType},
      });
}

// ---- Export result response: the export result.

const char kInvalidExportResult[] = "invalid success export_result_response.export_result";

std::string exportResult(const std::string &value) {
  return R"({"success": true, "export_result": )" + value + "}";
}

TEST(ExportResultResponse, HasAnExportResultWhenItSucceeds) {
  const Messages missing = {"no member [export_result]",
                            "invalid success export_result_response, no [export_result]"};
  checkRule(PACKET_EXPORT_RESULT_RESPONSE,
            {
                {exportResult(R"({"success": true, "app_data_version": "1.0"})"), kValid, {}},
                {R"({"success": true, "error": 5, "other": null,
                     "export_result": {"success": true, "app_data_version": "1.0", "more": []}})",
                 kValid,
                 {}},
                {R"({"success": true})", kInvalid, missing},
                {R"({"success": true, "external_handler_result": []})", kInvalid, missing},
            });
}

TEST(ExportResult, IsAnObjectOfSuccessAndVersion) {
  const Messages notAnObject = {"not a object", kInvalidExportResult};
  const Messages noSuccess = {"no member [success]", kInvalidExportResult};
  const Messages noVersion = {"no member [app_data_version]", kInvalidExportResult};
  checkRule(PACKET_EXPORT_RESULT_RESPONSE,
            {
                {exportResult("null"), kInvalid, notAnObject},
                {exportResult("true"), kInvalid, notAnObject},
                {exportResult("5"), kInvalid, notAnObject},
                {exportResult(R"("1.0")"), kInvalid, notAnObject},
                {exportResult("[]"), kInvalid, notAnObject},
                {exportResult("{}"), kInvalid, noSuccess},
                {exportResult(R"({"app_data_version": "1.0"})"), kInvalid, noSuccess},
                {exportResult(R"({"success": true})"), kInvalid, noVersion},
                {exportResult(R"({"success": []})"), kInvalid, noVersion},
                {exportResult(R"({"success": false})"), kInvalid, noVersion},
            });
}

TEST(ExportResult, HasASuccessThatReadsAsTrue) {
  const auto withSuccess = [](const std::string &value) {
    return exportResult(R"({"success": )" + value + R"(, "app_data_version": "1.0"})");
  };
  const Messages impossible = {"export_result.success = false, impossible"};
  checkRule(PACKET_EXPORT_RESULT_RESPONSE, {
                                               {withSuccess("true"), kValid, {}},
                                               {withSuccess("1"), kValid, {}},
                                               {withSuccess("-1"), kValid, {}},
                                               {withSuccess("18446744073709551615"), kValid, {}},
                                               {withSuccess("0.5"), kValid, {}},
                                               {withSuccess("false"), kInvalid, impossible},
                                               {withSuccess("null"), kInvalid, impossible},
                                               {withSuccess("0"), kInvalid, impossible},
                                               {withSuccess("0.0"), kInvalid, impossible},
                                           });
}

TEST(ExportResult, IsCheckedForSuccessBeforeVersion) {
  checkRule(PACKET_EXPORT_RESULT_RESPONSE,
            {{exportResult(R"({"success": false, "app_data_version": 5})"),
              kInvalid,
              {"export_result.success = false, impossible"}}});
}

TEST(ExportResult, PropagatesTheConversionErrorOfANonScalarSuccess) {
  for (const std::string value : {R"("true")", R"("")", "[]", "[true]", "{}", R"({"a": 1})"}) {
    SCOPED_TRACE(value);
    const Json::Value payload =
        parseJson(exportResult(R"({"success": )" + value + R"(, "app_data_version": 5})"));
    const Json::Value before = payload;
    LogCapture capture;
    EXPECT_THROW(Util::isValidPacket(PACKET_EXPORT_RESULT_RESPONSE, payload), Json::LogicError);
    EXPECT_EQ(capture.take(), LogLines{});
    EXPECT_EQ(payload, before);
  }
}

TEST(ExportResult, HasAVersionOfTwoNumbers) {
  const auto withVersion = [](const std::string &value) {
    return exportResult(R"({"success": true, "app_data_version": )" + value + "}");
  };
  for (const std::string &version : kVersions) {
    checkRule(PACKET_EXPORT_RESULT_RESPONSE, {{withVersion('"' + version + '"'), kValid, {}}});
  }
  for (const auto &[version, shown] : kNoVersions) {
    checkRule(PACKET_EXPORT_RESULT_RESPONSE,
              {{withVersion('"' + version + '"'),
                kInvalid,
                {"invalid app_data_version format [" + shown + "]", kInvalidExportResult}}});
  }
  for (const std::string &value : kNoTexts) {
    checkRule(PACKET_EXPORT_RESULT_RESPONSE,
              {{withVersion(value),
                kInvalid,
                {"[isExportResultResponseValid]: member [app_data_version] is not a string",
                 kInvalidExportResult}}});
  }
}

// ---- Export result response: the results of external handlers.

const char kInvalidHandlers[] = "invalid external handler result";

std::string handlers(const std::string &value) {
  return R"({"success": true, "export_result": {"success": true, "app_data_version": "1.0"},)"
         R"( "external_handler_result": )" +
         value + "}";
}

TEST(ExternalHandlerResults, AreAnArrayOfAtLeastOne) {
  const Messages notAnArray = {
      "[isExternalHandlerResultValid]: member [external_handler_result] is not a string",
      kInvalidHandlers};
  const Messages empty = {
      "[isExternalHandlerResultValid] error: length of array [external_handler_result][0] is less "
      "than 1",
      kInvalidHandlers};
  checkRule(
      PACKET_EXPORT_RESULT_RESPONSE,
      {
          {handlers(R"([{"handler": "h", "handler_type": "t", "result": 1}])"), kValid, {}},
          {handlers("null"), kInvalid, notAnArray},
          {handlers("false"), kInvalid, notAnArray},
          {handlers("1"), kInvalid, notAnArray},
          {handlers(R"("text")"), kInvalid, notAnArray},
          {handlers(R"({"handler": "h", "handler_type": "t", "result": 1})"), kInvalid, notAnArray},
          {handlers("{}"), kInvalid, notAnArray},
          {handlers("[]"), kInvalid, empty},
      });
}

TEST(ExternalHandlerResults, AreObjectsOfHandlerTypeAndResult) {
  const Messages notAnObject = {"not a object", "invalid external handler", kInvalidHandlers};
  const auto missing = [](const std::string &key) {
    return Messages{"no member [" + key + "]", "invalid external handler", kInvalidHandlers};
  };
  checkRule(
      PACKET_EXPORT_RESULT_RESPONSE,
      {
          {handlers("[null]"), kInvalid, notAnObject},
          {handlers("[true]"), kInvalid, notAnObject},
          {handlers("[5]"), kInvalid, notAnObject},
          {handlers(R"(["h"])"), kInvalid, notAnObject},
          {handlers("[[]]"), kInvalid, notAnObject},
          {handlers("[{}]"), kInvalid, missing("handler")},
          {handlers(R"([{"handler_type": "t", "result": 1}])"), kInvalid, missing("handler")},
          {handlers(R"([{"handler": 5, "result": 1}])"), kInvalid, missing("handler_type")},
          {handlers(R"([{"handler": "h", "handler_type": "t"}])"), kInvalid, missing("result")},
          {handlers(R"([{"handler": 5, "handler_type": 5}])"), kInvalid, missing("result")},
      });
}

TEST(ExternalHandlerResults, HaveStringsAsHandlerAndType) {
  const auto wrongType = [](const std::string &key) {
    return Messages{"[isExternalHandlerResultValid]: member [" + key + "] is not a string",
                    kInvalidHandlers};
  };
  for (const std::string value : {"null", "true", "5", "5.5", "[]", "{}"}) {
    checkRule(PACKET_EXPORT_RESULT_RESPONSE,
              {
                  {handlers(R"([{"handler": )" + value + R"(, "handler_type": "t", "result": 1}])"),
                   kInvalid, wrongType("handler")},
                  {handlers(R"([{"handler": "h", "handler_type": )" + value + R"(, "result": 1}])"),
                   kInvalid, wrongType("handler_type")},
                  {handlers(R"([{"handler": )" + value + R"(, "handler_type": )" + value +
                            R"(, "result": 1}])"),
                   kInvalid, wrongType("handler")},
              });
  }
  checkRule(PACKET_EXPORT_RESULT_RESPONSE,
            {{handlers(R"([{"handler": "", "handler_type": "", "result": "", "more": 1}])"),
              kValid,
              {}}});
}

TEST(ExternalHandlerResults, HoldAnyValueAsResult) {
  for (const std::string value : {"null", "true", "5", "5.5", R"("text")", "[]", R"({"a": [1]})"}) {
    checkRule(PACKET_EXPORT_RESULT_RESPONSE,
              {{handlers(R"([{"handler": "h", "handler_type": "t", "result": )" + value + "}]"),
                kValid,
                {}}});
  }
}

TEST(ExternalHandlerResults, AreReportedUpToTheFirstInvalidOne) {
  const std::string valid = R"({"handler": "h", "handler_type": "t", "result": 1})";
  checkRule(PACKET_EXPORT_RESULT_RESPONSE,
            {
                {handlers("[" + valid + "," + valid + "," + valid + "]"), kValid, {}},
                {handlers("[" + valid + R"(, {"handler": "h"}, 5])"),
                 kInvalid,
                 {"no member [handler_type]", "invalid external handler", kInvalidHandlers}},
                {handlers("[" + valid + "," + valid + ", 5]"),
                 kInvalid,
                 {"not a object", "invalid external handler", kInvalidHandlers}},
            });
}

TEST(ExternalHandlerResults, ReadTheGapsOfASparseArrayAsNull) {
  Json::Value payload = parseJson(handlers("[]"));
  payload["external_handler_result"][3] =
      parseJson(R"({"handler": "h", "handler_type": "t", "result": 1})");
  checkRule(PACKET_EXPORT_RESULT_RESPONSE, payload,
            {"", kInvalid, {"not a object", "invalid external handler", kInvalidHandlers}});
}

}  // namespace
