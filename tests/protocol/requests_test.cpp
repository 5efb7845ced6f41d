// The rules of requests and responses: one row per check, with the lines that it logs.

#include <gtest/gtest.h>
#include <json/value.h>

#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/rule_case.h"
#include "zarn/arvlapp/protocol_util.h"

namespace {

using namespace ZARN::ARVLAPP;
using arvl_test::checkRule;
using arvl_test::LogLines;
using arvl_test::parseJson;
using arvl_test::RuleCase;
using arvl_test::Verdict;

struct Case {
  const char *payload;
  LogLines lines;  // none: the payload is valid
};

// A payload is valid if its row has no log lines.
void expectVerdicts(PACKET_TYPE type, const std::vector<Case> &cases) {
  std::vector<RuleCase> rows;
  for (const Case &row : cases) {
    rows.push_back(
        {row.payload, row.lines.empty() ? Verdict::kValid : Verdict::kInvalid, row.lines});
  }
  checkRule(type, rows);
}

// Runs the checks that every response object shares, with the packet's own line at the end.
void expectResponseObject(PACKET_TYPE type, const std::string &wrapper) {
  expectVerdicts(type,
                 {
                     {"[1]", {"not a object", "invalid result object", wrapper}},
                     {"null", {"not a object", "invalid result object", wrapper}},
                     {"5", {"not a object", "invalid result object", wrapper}},
                     {"{}", {"no member [success]", "invalid result object", wrapper}},
                     {R"({"success":1})",
                      {"[isBasicResponseObjectValid]: member [success] is not boolean", wrapper}},
                     {R"({"success":null})",
                      {"[isBasicResponseObjectValid]: member [success] is not boolean", wrapper}},
                     {R"({"success":false})", {"basic fail response without key [error]", wrapper}},
                     {R"({"success":false,"error":5})",
                      {"[isBasicResponseObjectValid]: member [error] is not a string", wrapper}},
                     {R"({"success":false,"error":null})",
                      {"[isBasicResponseObjectValid]: member [error] is not a string", wrapper}},
                 });
}

// Checks the items of a transfer request of the form {"data": [item]}.
void expectItems(PACKET_TYPE type) {
  const auto request = [](const std::string &item) { return "{\"data\":[" + item + "]}"; };
  const auto source = [](const std::string &members) {
    return "{\"data\":[{\"source\":{" + members + "},\"destination\":{\"path\":\"/d\"}}]}";
  };
  const std::string last = "error: invalid data[0]";
  const std::vector<std::pair<std::string, LogLines>> rows = {
      {request("5"), {"not a object", "invalid fileinfo obj", last}},
      {request("{}"), {"no member [source]", "invalid fileinfo obj", last}},
      {request(R"({"source":{"type":"file","path":"/f"}})"),
       {"no member [destination]", "invalid fileinfo obj", last}},
      {request(R"({"source":"/f","destination":{"path":"/d"}})"),
       {"not a object", "invalid fileinfo.source", last}},
      {source(R"("path":"/f")"), {"no member [type]", "invalid fileinfo.source", last}},
      {source(R"("type":"file")"), {"no member [path]", "invalid fileinfo.source", last}},
      {source(R"("type":1,"path":"/f")"),
       {"[isFTypeMemberValid]: member [type] is not a string", "invalid fileinfo.source.type",
        last}},
      {source(R"("type":"File","path":"f")"),
       {"invalid fileType [File]", "invalid fileinfo.source.type", last}},
      {source(R"("type":"directory","path":"/f")"),
       {"invalid fileType [directory]", "invalid fileinfo.source.type", last}},
      {source(R"("type":"","path":"/f")"),
       {"invalid fileType []", "invalid fileinfo.source.type", last}},
      {source(R"("type":"none","path":"/f")"),
       {"invalid fileType [none]", "invalid fileinfo.source.type", last}},
      {source(R"("type":"file\u0000","path":"/f")"),
       {"invalid fileType [file]", "invalid fileinfo.source.type", last}},
      {source(R"("type":"file","path":1)"),
       {"[isPathMemberValid]: member [path] is not a string", "invalid fileinfo.source.path",
        last}},
      {source(R"("type":"file","path":"")"),
       {"invalid [path] not abs path []", "invalid fileinfo.source.path", last}},
      {source(R"("type":"file","path":"relative/x")"),
       {"invalid [path] not abs path [relative/x]", "invalid fileinfo.source.path", last}},
      {source(R"("type":"file","path":"/f","is_temp":"yes")"),
       {"[isFileInfoSrcValid]: member [is_temp] is not boolean", last}},
      {source(R"("type":"file","path":"/f","is_temp":null)"),
       {"[isFileInfoSrcValid]: member [is_temp] is not boolean", last}},
      {request(R"({"source":{"type":"file","path":"/f"},"destination":"/d"})"),
       {"not a object", "invalid fileinfo.destination", last}},
      {request(R"({"source":{"type":"file","path":"/f"},"destination":{}})"),
       {"no member [path]", "invalid fileinfo.destination", last}},
      {request(R"({"source":{"type":"file","path":"/f"},"destination":{"path":7}})"),
       {"[isPathMemberValid]: member [path] is not a string", "invalid fileinfo.destination.path",
        last}},
      {request(R"({"source":{"type":"file","path":"/f"},"destination":{"path":"d"}})"),
       {"invalid [path] not abs path [d]", "invalid fileinfo.destination.path", last}},
      {source(R"("type":"file","path":"/")"), {}},
      {source(R"("type":"dir","path":"/a/../b//")"), {}},
      {source(R"("type":"symlink","path":"/f","is_temp":true)"), {}},
      {source(R"("type":"file","path":"/f","is_temp":false,"more":[])"), {}},
      {request(R"({"source":{"type":"file","path":"/f"},"destination":{"path":"/d","more":1},)"
               R"("with_metadata":"any","progress_percentage":"any"})"),
       {}},
  };
  std::vector<Case> cases;
  for (const auto &row : rows) {
    cases.push_back({row.first.c_str(), row.second});
  }
  expectVerdicts(type, cases);
}

TEST(UploadRequestRule, TakesOneItemOrMany) {
  expectVerdicts(
      PACKET_UPLOAD_REQUEST,
      {
          {"[]", {"not a object", "invalid upload request object"}},
          {"{}", {"no member [data]", "invalid upload request object"}},
          {R"({"data":{}})", {"[isUploadRequestValid]: member [data] is not a string"}},
          {R"({"data":null})", {"[isUploadRequestValid]: member [data] is not a string"}},
          {R"({"data":[]})",
           {"[isUploadRequestValid] error: length of array [data][0] is less than 1"}},
          {R"({"data":[{"source":{"type":"file","path":"/f"},"destination":{"path":"/d"}},
                                  {"source":{"type":"dir","path":"/g"},"destination":{"path":"/d"}}]})",
           {}},
          {R"({"data":[{"source":{"type":"file","path":"/f"},"destination":{"path":"/d"}},
                                  {"source":{"type":"dir","path":"/g"}}]})",
           {"no member [destination]", "invalid fileinfo obj", "error: invalid data[1]"}},
      });
  expectItems(PACKET_UPLOAD_REQUEST);
}

TEST(DownloadRequestRule, TakesExactlyOneItem) {
  expectVerdicts(
      PACKET_DOWNLOAD_REQUEST,
      {
          {"null", {"not a object", "invalid download request object"}},
          {"{}", {"no member [data]", "invalid download request object"}},
          {R"({"data":"x"})", {"[isDownloadRequestValid]: member [data] is not a string"}},
          {R"({"data":[]})",
           {"[isDownloadRequestValid] error: length of array [data][0] is less than 1"}},
          {R"({"data":[{"source":{"type":"file","path":"/f"},"destination":{"path":"/d"}},
                       {"source":{"type":"file","path":"/g"},"destination":{"path":"/d"}}]})",
           {"not support multiple download yet"}},
          {R"({"data":[1,2,3]})", {"not support multiple download yet"}},
      });
  expectItems(PACKET_DOWNLOAD_REQUEST);
}

void expectTransferResponse(PACKET_TYPE type, const std::string &wrapper,
                            const std::string &context) {
  expectResponseObject(type, wrapper);
  const std::string notArray = "[" + context + "]: member [data] is not a string";
  expectVerdicts(
      type,
      {
          {R"({"success":true})", {notArray}},
          {R"({"success":false,"error":"x"})", {notArray}},
          {R"({"success":true,"data":{}})", {notArray}},
          {R"({"success":true,"data":[]})",
           {"[" + context + "] error: length of array [data][0] is less than 1"}},
          {R"({"success":true,"data":[3]})",
           {"not a object", "invalid resp_file_info obj", "error: invalid data[0]"}},
          {R"({"success":true,"data":[{"success":true}]})",
           {"no member [source]", "invalid resp_file_info obj", "error: invalid data[0]"}},
          {R"({"success":true,"data":[{"source":{"type":"file","path":"/f"}}]})",
           {"no member [success]", "invalid resp_file_info obj", "error: invalid data[0]"}},
          {R"({"success":true,"data":[{"source":{"type":"file"},"success":true}]})",
           {"no member [path]", "invalid fileinfo.source", "error: invalid data[0]"}},
          {R"({"success":true,"data":[{"source":{"type":"file","path":"/f"},"success":1}]})",
           {"[isRespFileInfoValid]: member [success] is not boolean", "error: invalid data[0]"}},
          {R"({"success":false,"error":"x","data":[{"source":{"type":"file","path":"/f"},"success":false}]})",
           {"[isRespFileInfoValid]: member [error] is not a string", "error: invalid data[0]"}},
          {R"({"success":true,"data":[{"source":{"type":"file","path":"/f"},"success":true},
                                      {"source":{"type":"file","path":"/f"},"success":false,"error":1}]})",
           {"[isRespFileInfoValid]: member [error] is not a string", "error: invalid data[1]"}},
          {R"({"success":true,"data":[{"source":{"type":"file","path":"/f"},"success":true,"error":1}]})",
           {}},
          {R"({"success":false,"error":"x","data":[{"source":{"type":"dir","path":"/f","is_temp":true},
               "success":false,"error":""}]})",
           {}},
          {R"({"success":true,"error":5,"data":[{"source":{"type":"symlink","path":"/"},"success":true}]})",
           {}},
      });
}

TEST(UploadResponseRule, RequiresItemsEvenOnFailure) {
  expectTransferResponse(PACKET_UPLOAD_RESPONSE, "invalid upload_response",
                         "isUploadResponseValid");
}

TEST(DownloadResponseRule, RequiresItemsEvenOnFailure) {
  expectTransferResponse(PACKET_DOWNLOAD_RESPONSE, "invalid download_response",
                         "isDownloadResponseValid");
}

TEST(CreateDirRequestRule, AcceptsAnAbsolutePathOnly) {
  expectVerdicts(
      PACKET_CREATE_DIR_REQUEST,
      {
          {"[]", {"not a object", "invalid create dir request object"}},
          {"{}", {"no member [path]", "invalid create dir request object"}},
          {R"({"path":1})",
           {"[isPathMemberValid]: member [path] is not a string",
            "invalid create dir request: [path]"}},
          {R"({"path":""})",
           {"invalid [path] not abs path []", "invalid create dir request: [path]"}},
          {R"({"path":"data/x"})",
           {"invalid [path] not abs path [data/x]", "invalid create dir request: [path]"}},
          {R"({"path":"/"})", {}},
          {R"({"path":"//a/../b/","more":1})", {}},
      });
}

TEST(CreateDirResponseRule, EchoesTheRequestEvenOnFailure) {
  expectResponseObject(PACKET_CREATE_DIR_RESPONSE, "invalid create dir response");
  expectVerdicts(PACKET_CREATE_DIR_RESPONSE,
                 {
                     {R"({"success":true})",
                      {"no member [request]", "invalid create dir response: no [request]"}},
                     {R"({"success":false,"error":"exists"})",
                      {"no member [request]", "invalid create dir response: no [request]"}},
                     {R"({"success":true,"request":5})",
                      {"not a object", "invalid create dir request object",
                       "invalid create dir response: invalid [request]"}},
                     {R"({"success":true,"request":{}})",
                      {"no member [path]", "invalid create dir request object",
                       "invalid create dir response: invalid [request]"}},
                     {R"({"success":true,"request":{"path":"x"}})",
                      {"invalid [path] not abs path [x]", "invalid create dir request: [path]",
                       "invalid create dir response: invalid [request]"}},
                     {R"({"success":true,"request":{"path":"/x"}})", {}},
                     {R"({"success":false,"error":"exists","request":{"path":"/x"}})", {}},
                 });
}

// A request with only a token is valid, but logs a line.
TEST(ListDirRequestRule, TakesAPathOrATokenAndALimit) {
  expectVerdicts(
      PACKET_LIST_DIR_REQUEST,
      {
          {"[]", {"not a object", "not a object", "invalid listDir request object"}},
          {"{}", {"no member [path]", "no member [request_id]", "invalid listDir request object"}},
          {R"({"path":"/a","request_id":"r1"})",
           {"invalid listDir request, assign path and request_id concurrently"}},
          {R"({"path":"a"})", {"invalid [path] not abs path [a]", "invalid path"}},
          {R"({"path":null})",
           {"[isPathMemberValid]: member [path] is not a string", "invalid path"}},
          {R"({"request_id":7})",
           {"no member [path]", "[isListDirRequestValid]: member [request_id] is not a string"}},
          {R"({"path":"/a","max_record":"10"})",
           {"[isListDirRequestValid]: member [max_record] is not a int"}},
          {R"({"path":"/a","max_record":2147483648})",
           {"[isListDirRequestValid]: member [max_record] is not a int"}},
          {R"({"path":"/a","max_record":1025})",
           {"invalid listDir request, max_record over limit (1025 v.s. 1024)"}},
          {R"({"path":"/a","max_record":-1})",
           {"invalid listDir request, max_record over limit (-1 v.s. 1024)"}},
          {R"({"path":"/a"})", {}},
          {R"({"path":"/a","max_record":1024})", {}},
          {R"({"path":"/a","max_record":0})", {}},
      });
  checkRule(PACKET_LIST_DIR_REQUEST,
            {
                {R"({"request_id":"r1"})", Verdict::kValid, {"no member [path]"}},
                {R"({"request_id":"","max_record":5})", Verdict::kValid, {"no member [path]"}},
            });
}

TEST(ListDirResponseRule, EchoesTheRequestAndHoldsAPage) {
  expectResponseObject(PACKET_LIST_DIR_RESPONSE, "invalid listDir response object");
  const auto page = [](const std::string &entry) {
    return R"({"success":true,"request":{"path":"/"},"list_complete":true,"entry_list":[)" + entry +
           "]}";
  };
  const std::vector<std::pair<std::string, LogLines>> rows = {
      {R"({"success":true})",
       {"no member [request]", "invalid listDir response object, no [request]"}},
      {R"({"success":false,"error":"x"})",
       {"no member [request]", "invalid listDir response object, no [request]"}},
      {R"({"success":false,"error":"x","request":{"path":"r"}})",
       {"invalid [path] not abs path [r]", "invalid path",
        "invalid listDirResponse.request object"}},
      {R"({"success":false,"error":"x","request":{"path":"/"}})", {}},
      {R"({"success":true,"request":{"path":"/"}})",
       {"no member [entry_list]", "invalid success listDir response object"}},
      {R"({"success":true,"request":{"path":"/"},"entry_list":[]})",
       {"no member [list_complete]", "invalid success listDir response object"}},
      {R"({"success":true,"request":{"path":"/"},"entry_list":{},"list_complete":1})",
       {"[isListDirResponseValid]: member [entry_list] is not a string"}},
      {R"({"success":true,"request":{"path":"/"},"entry_list":[5],"list_complete":1})",
       {"[isListDirResponseValid]: member [list_complete] is not boolean"}},
      {R"({"success":true,"request":{"path":"/"},"entry_list":[],"list_complete":false})",
       {"no member [request_id]", "invalid incomplete listDir response"}},
      {R"({"success":true,"request":{"path":"/"},"entry_list":[],"list_complete":false,"request_id":3})",
       {"[isListDirResponseValid]: member [request_id] is not a string"}},
      {R"({"success":true,"request":{"path":"/"},"entry_list":[],"list_complete":false,"request_id":""})",
       {}},
      {page(""), {}},
      {page("5"), {"not a object", "invalid listDir entry"}},
      {page(R"({"type":"file","mtime":1,"size":1})"),
       {"no member [path]", "invalid listDir entry"}},
      {page(R"({"path":"/a","mtime":1,"size":1})"), {"no member [type]", "invalid listDir entry"}},
      {page(R"({"path":"/a","type":"file","size":1})"),
       {"no member [mtime]", "invalid listDir entry"}},
      {page(R"({"path":"/a","type":"file","mtime":1})"),
       {"no member [size]", "invalid listDir entry"}},
      {page(R"({"path":"a","type":"x","mtime":"1","size":"1"})"),
       {"[isListDirEntryValid]: member [mtime] is not a int"}},
      {page(R"({"path":"a","type":"x","mtime":1,"size":4294967296})"),
       {"[isListDirEntryValid]: member [size] is not a int"}},
      {page(R"({"path":"a","type":"x","mtime":1,"size":1})"),
       {"invalid fileType [x]", "invalid entry_list.type"}},
      {page(R"({"path":"a","type":5,"mtime":1,"size":1})"),
       {"[isFTypeMemberValid]: member [type] is not a string", "invalid entry_list.type"}},
      {page(R"({"path":"a","type":"dir","mtime":1,"size":1})"),
       {"invalid [path] not abs path [a]", "invalid entry_list.path"}},
      {page(R"({"path":"/a","type":"symlink","mtime":-2147483648,"size":2147483647})"), {}},
      {page(R"({"path":"/a","type":"dir","mtime":1,"size":-1},{"path":"/b"})"),
       {"no member [type]", "invalid listDir entry"}},
  };
  std::vector<Case> cases;
  for (const auto &row : rows) {
    cases.push_back({row.first.c_str(), row.second});
  }
  expectVerdicts(PACKET_LIST_DIR_RESPONSE, cases);

  checkRule(
      PACKET_LIST_DIR_RESPONSE,
      {{R"({"success":true,"request":{"request_id":"t"},"entry_list":[],"list_complete":true})",
        Verdict::kValid,
        {"no member [path]"}}});
}

TEST(SelectedSourceResponseRule, HoldsBothListsEvenOnFailure) {
  expectResponseObject(PACKET_SELECTED_SOURCE_RESPONSE, "invalid get select source response");
  const std::string context = "[isSelectedSourceResponseValid]: member ";
  expectVerdicts(
      PACKET_SELECTED_SOURCE_RESPONSE,
      {
          {R"({"success":true})",
           {context + "[backup_folders] is not a string", "folder is not array"}},
          {R"({"success":false,"error":"x"})",
           {context + "[backup_folders] is not a string", "folder is not array"}},
          {R"({"success":true,"backup_folders":[{"object":3}]})",
           {context + "[object] is not a string", "error: [backup_folders] invalid data[0]"}},
          {R"({"success":true,"backup_folders":[{"object":"a"},5],"backup_apps":5})",
           {"not a object", "error: [backup_folders] invalid object"}},
          {R"({"success":true,"backup_folders":[{}],"backup_apps":[]})",
           {"no member [object]", "error: [backup_folders] invalid object"}},
          {R"({"success":true,"backup_folders":[]})",
           {context + "[backup_apps] is not a string", "app is not array"}},
          {R"({"success":true,"backup_folders":[],"backup_apps":{}})",
           {context + "[backup_apps] is not a string", "app is not array"}},
          {R"({"success":true,"backup_folders":[],"backup_apps":["mail"]})",
           {"not a object", "error: [backup_apps] invalid object"}},
          {R"({"success":true,"backup_folders":[],"backup_apps":[{"object":"a"},{"object":null}]})",
           {context + "[object] is not a string", "error: [backup_apps] invalid data[1]"}},
          {R"({"success":true,"backup_folders":[],"backup_apps":[]})", {}},
          {R"({"success":false,"error":"x","backup_folders":[{"object":"","x":1}],"backup_apps":[{"object":"m"}]})",
           {}},
      });
}

TEST(ExportConfigResponseRule, HoldsAnyValue) {
  expectResponseObject(PACKET_EXPORT_CONFIG_RESPONSE, "invalid export_config_response");
  expectVerdicts(PACKET_EXPORT_CONFIG_RESPONSE,
                 {
                     {R"({"success":true})",
                      {"no member [export_config]",
                       "invalid success export_config_response, no [export_config]"}},
                     {R"({"success":true,"export_config":null})", {}},
                     {R"({"success":true,"export_config":[1,{"a":2}]})", {}},
                     {R"({"success":false,"error":""})", {}},
                 });
}

TEST(LanguageResponseRule, HoldsAString) {
  expectResponseObject(PACKET_LANGUAGE_RESPONSE, "invalid language_response");
  expectVerdicts(PACKET_LANGUAGE_RESPONSE,
                 {
                     {R"({"success":true})",
                      {"no member [language]", "invalid success language_response, no [language]"}},
                     {R"({"success":true,"language":1})",
                      {"[isLanguageResponseValid]: member [language] is not a string",
                       "error: [language] invalid data"}},
                     {R"({"success":true,"language":""})", {}},
                     {R"({"success":false,"error":""})", {}},
                     {R"({"success":false,"error":"x","language":1})", {}},
                 });
}

TEST(SetProgressRequestRule, TakesAStageAndAPercentage) {
  const std::string range = "progress percentage should be 0 ~ 100";
  expectVerdicts(PACKET_SET_PROGRESS_REQUEST,
                 {
                     {"[]", {"not a object", "invalid progress object"}},
                     {R"({"progress_percentage":1})",
                      {"no member [progress_stage]", "invalid progress object"}},
                     {R"({"progress_stage":"x"})",
                      {"no member [progress_percentage]", "invalid progress object"}},
                     {R"({"progress_stage":1,"progress_percentage":"x"})",
                      {"[isSetProgressRequestValid]: member [progress_stage] is not a string"}},
                     {R"({"progress_stage":"x","progress_percentage":50.5})",
                      {"[isSetProgressRequestValid]: member [progress_percentage] is not a int"}},
                     {R"({"progress_stage":"x","progress_percentage":101})", {range}},
                     {R"({"progress_stage":"x","progress_percentage":-1})", {range}},
                     {R"({"progress_stage":"x","progress_percentage":-2147483648})", {range}},
                     {R"({"progress_stage":"x","progress_percentage":100})", {}},
                     {R"({"progress_stage":"","progress_percentage":0})", {}},
                 });
}

TEST(SetProgressResponseRule, ShowsThePayloadThatItRefuses) {
  expectVerdicts(PACKET_SET_PROGRESS_RESPONSE, {
                                                   {R"({"success":true})", {}},
                                                   {R"({"success":true,"error":5})", {}},
                                                   {R"({"success":false,"error":"busy"})", {}},
                                               });
  const std::string styled = "{\n\t\"success\" : false\n}\n";
  expectVerdicts(
      PACKET_SET_PROGRESS_RESPONSE,
      {
          {R"({"success":false})",
           {"basic fail response without key [error]",
            "invalid progress_response [" + styled + "]"}},
          {"5", {"not a object", "invalid result object", "invalid progress_response [5\n]"}},
      });
}

// The index look-up of an array finds null where a sparse one has no element.
TEST(Arrays, AreReadByIndexEvenIfSparse) {
  Json::Value payload = parseJson(R"({"success":true,"data":[]})");
  payload["data"][1] = parseJson(R"({"source":{"type":"file","path":"/f"},"success":true})");
  checkRule(PACKET_UPLOAD_RESPONSE, payload,
            {"",
             Verdict::kInvalid,
             {"not a object", "invalid resp_file_info obj", "error: invalid data[0]"}});

  Json::Value page =
      parseJson(R"({"success":true,"request":{"path":"/"},"list_complete":true,"entry_list":[]})");
  page["entry_list"][1] = parseJson(R"({"path":"/a","type":"file","mtime":1,"size":1})");
  checkRule(PACKET_LIST_DIR_RESPONSE, page,
            {"", Verdict::kInvalid, {"not a object", "invalid listDir entry"}});

  Json::Value sources = parseJson(R"({"success":true,"backup_folders":[],"backup_apps":[]})");
  sources["backup_folders"][1] = parseJson(R"({"object":"a"})");
  checkRule(PACKET_SELECTED_SOURCE_RESPONSE, sources,
            {"", Verdict::kInvalid, {"not a object", "error: [backup_folders] invalid object"}});
}

}  // namespace
