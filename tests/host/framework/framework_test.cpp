// Tests the answers of the framework and their validity.

#include "framework/framework.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>

#include "protocol/packet_table.h"
#include "step/rule_book.h"
#include "support/json.h"
#include "support/temp_dir.h"

namespace {

using namespace arvl_host;
using namespace ZARN::ARVLAPP;
using arvl_test::parseJson;
using arvl_test::TempDir;

class FrameworkAnswers : public testing::Test {
 protected:
  FrameworkAnswers() : store_(dir_.path().string()) {}

  Json::Value ask(Framework &framework, PACKET_TYPE request, const std::string &payload) {
    const std::optional<Json::Value> answer =
        framework.answer(request, payload.empty() ? Json::Value() : parseJson(payload));
    EXPECT_TRUE(answer.has_value());
    const Verdict verdict = judge(findPacket(request)->answer, *answer);
    EXPECT_TRUE(verdict.valid) << answer->toStyledString();
    return *answer;
  }

  Framework make(FrameworkValues values = {}, bool withStore = true) {
    return Framework(std::move(values), withStore ? &store_ : nullptr,
                     [this](const std::string &stage, int percentage) {
                       progress_ += stage + " " + std::to_string(percentage) + "\n";
                     });
  }

  void touch(const std::string &name) const { std::ofstream(dir_.path().string() + "/" + name); }

  static Json::Value pathRequest(const std::string &path) {
    Json::Value request;
    request["path"] = path;
    return request;
  }

  const TempDir dir_;
  Store store_;
  std::string progress_;
};

TEST_F(FrameworkAnswers, HoldTheValuesOfTheCommandLine) {
  FrameworkValues values;
  values.exportConfig = parseJson("[1,2]");
  values.language = "ger";
  values.folders = {"docs", "a \"quoted\" name"};
  values.apps = {"mail"};
  Framework framework = make(values);
  EXPECT_EQ(ask(framework, PACKET_EXPORT_CONFIG_REQUEST, "")["export_config"], parseJson("[1,2]"));
  EXPECT_EQ(ask(framework, PACKET_LANGUAGE_REQUEST, "")["language"].asString(), "ger");
  const Json::Value source = ask(framework, PACKET_SELECTED_SOURCE_REQUEST, "");
  EXPECT_EQ(source["backup_folders"][1]["object"].asString(), "a \"quoted\" name");
  EXPECT_EQ(source["backup_apps"].size(), 1u);
  EXPECT_TRUE(ask(framework, PACKET_SET_PROGRESS_REQUEST,
                  R"({"progress_stage":"x","progress_percentage":7})")["success"]
                  .asBool());
  EXPECT_EQ(progress_, "x 7\n");
}

TEST_F(FrameworkAnswers, ShowTheBeginningOfALongStage) {
  Framework framework = make();
  Json::Value request;
  request["progress_stage"] = std::string(5000, 's');
  request["progress_percentage"] = 7;
  EXPECT_TRUE(framework.answer(PACKET_SET_PROGRESS_REQUEST, request).has_value());
  EXPECT_EQ(progress_, std::string(4096, 's') + " 7\n");
}

TEST_F(FrameworkAnswers, DoNotRepeatAPathThatIsTooLong) {
  Framework framework = make();
  const std::string path = "/" + std::string(4400, '\1');
  const Json::Value request = pathRequest(path);
  for (const PACKET_TYPE type : {PACKET_CREATE_DIR_REQUEST, PACKET_LIST_DIR_REQUEST}) {
    const std::optional<Json::Value> answer = framework.answer(type, request);
    EXPECT_EQ((*answer)["error"], "a path of 4401 bytes is longer than any file's");
    EXPECT_EQ((*answer)["request"], request);
  }
  Json::Value transfer = parseJson(R"({"data":[{"source":{"type":"file"},"destination":{}}]})");
  transfer["data"][0]["source"]["path"] = path;
  transfer["data"][0]["destination"]["path"] = "/a";
  for (const PACKET_TYPE type : {PACKET_UPLOAD_REQUEST, PACKET_DOWNLOAD_REQUEST}) {
    const std::optional<Json::Value> answer = framework.answer(type, transfer);
    EXPECT_EQ((*answer)["error"], "a path of 4401 bytes is longer than any file's");
  }
}

TEST_F(FrameworkAnswers, AcceptBothFormsOfTheExportResult) {
  FrameworkValues values;
  values.exportResult = makeExportResult(parseJson(R"({"success":true,"app_data_version":"1.2"})"));
  Framework bare = make(values);
  EXPECT_EQ(ask(bare, PACKET_EXPORT_RESULT_REQUEST, "")["export_result"]["app_data_version"],
            "1.2");
  values.exportResult = makeExportResult(
      parseJson(R"({"export_result":{"success":true,"app_data_version":"1.2"},)"
                R"("external_handler_result":[{"handler":"h","handler_type":"t","result":1}]})"));
  Framework whole = make(values);
  EXPECT_EQ(ask(whole, PACKET_EXPORT_RESULT_REQUEST, "")["external_handler_result"].size(), 1u);
  values.exportResult =
      makeExportResult(parseJson(R"({"export_result":{"success":true,"app_data_version":"1.2"},)"
                                 R"("external_handler_result":null})"));
  Framework withoutHandlers = make(values);
  EXPECT_FALSE(
      ask(withoutHandlers, PACKET_EXPORT_RESULT_REQUEST, "").isMember("external_handler_result"));
  Framework none = make();
  EXPECT_EQ(ask(none, PACKET_EXPORT_RESULT_REQUEST, "")["error"], "there is no export result");
}

TEST_F(FrameworkAnswers, RefuseAFailedExportAsAResult) {
  try {
    makeExportResult(parseJson(R"({"success":false,"app_data_version":"1.2"})"));
    FAIL();
  } catch (const std::runtime_error &error) {
    EXPECT_STREQ(error.what(),
                 "the rule book refuses the export result:\n"
                 "  export_result.success = false, impossible");
  }
}

const std::string kUpload = R"({"data":[
    {"source":{"type":"file","path":"/no/such"},"destination":{"path":"/a"}},
    {"source":{"type":"file","path":"/proc/self/cmdline"},"destination":{"path":"/b"}}]})";

TEST_F(FrameworkAnswers, OfATransferHoldTheResultOfEachItem) {
  Framework framework = make();
  const Json::Value answer = ask(framework, PACKET_UPLOAD_REQUEST, kUpload);
  EXPECT_FALSE(answer["success"].asBool());
  EXPECT_EQ(answer["error"].asString(), answer["data"][0]["error"].asString());
  EXPECT_EQ(answer["data"][0]["source"]["path"].asString(), "/no/such");
  EXPECT_TRUE(answer["data"][1]["success"].asBool());
  EXPECT_TRUE(std::filesystem::exists(dir_.path().string() + "/b"));
}

TEST_F(FrameworkAnswers, WithoutAStoreAreValidDenials) {
  Framework framework = make({}, false);
  const std::string denial = "this framework has no store";
  EXPECT_EQ(ask(framework, PACKET_UPLOAD_REQUEST, kUpload)["error"].asString(), denial);
  EXPECT_EQ(ask(framework, PACKET_DOWNLOAD_REQUEST, kUpload)["error"].asString(), denial);
  EXPECT_EQ(ask(framework, PACKET_CREATE_DIR_REQUEST, R"({"path":"/x"})")["error"].asString(),
            denial);
  EXPECT_EQ(ask(framework, PACKET_LIST_DIR_REQUEST, R"({"path":"/x"})")["error"].asString(),
            denial);
}

TEST_F(FrameworkAnswers, DoNotExistForOtherPackets) {
  Framework framework = make();
  EXPECT_FALSE(framework.answer(PACKET_STAT_REQUEST, Json::Value()).has_value());
  EXPECT_FALSE(framework.answer(PACKET_SUMMARY_RESULT, Json::Value()).has_value());
}

TEST_F(FrameworkAnswers, OfAListingComeInPages) {
  for (int i = 0; i < 5; ++i) {
    touch(std::to_string(i));
  }
  FrameworkValues values;
  values.listPage = 2;
  Framework framework = make(values);
  std::set<std::string> names;
  int pages = 0;
  std::string request = R"({"path":"/"})";
  for (;;) {
    const Json::Value page = ask(framework, PACKET_LIST_DIR_REQUEST, request);
    ++pages;
    EXPECT_EQ(page["request"], parseJson(request));
    for (const Json::Value &entry : page["entry_list"]) {
      EXPECT_TRUE(names.insert(entry["path"].asString()).second);
    }
    if (page["list_complete"].asBool()) {
      break;
    }
    request = "{\"request_id\":\"" + page["request_id"].asString() + "\"}";
  }
  EXPECT_EQ(names, (std::set<std::string>{"/0", "/1", "/2", "/3", "/4"}));
  EXPECT_EQ(pages, 3);
  EXPECT_EQ(ask(framework, PACKET_LIST_DIR_REQUEST, request)["error"].asString(),
            "unknown request_id");
  EXPECT_EQ(ask(framework, PACKET_LIST_DIR_REQUEST, R"({"path":"/","max_record":1})")["entry_list"]
                .size(),
            1u);
}

TEST_F(FrameworkAnswers, OfAListingFitAPacketForAnyEntryLimit) {
  // Each character of these names takes six bytes in a packet.
  std::string folder;
  for (int depth = 0; depth < 14; ++depth) {
    folder += "/" + std::string(250, '\x01');
  }
  std::filesystem::create_directories(dir_.path().string() + folder);
  constexpr std::size_t kFiles = 1700;
  for (std::size_t i = 0; i < kFiles; ++i) {
    touch(folder.substr(1) + "/" + std::to_string(i));
  }
  FrameworkValues values;
  values.listPage = 1000000;
  Framework framework = make(values);
  const std::optional<Json::Value> first =
      framework.answer(PACKET_LIST_DIR_REQUEST, pathRequest(folder));
  ASSERT_FALSE((*first)["list_complete"].asBool());
  EXPECT_LT(first->toStyledString().size(), 0x2000000u);
  Json::Value next;
  next["request_id"] = (*first)["request_id"];
  const std::optional<Json::Value> second = framework.answer(PACKET_LIST_DIR_REQUEST, next);
  EXPECT_TRUE((*second)["list_complete"].asBool());
  EXPECT_EQ((*first)["entry_list"].size() + (*second)["entry_list"].size(), kFiles);
}

TEST_F(FrameworkAnswers, ReplaceTheOldestOpenListing) {
  touch("a");
  touch("b");
  FrameworkValues values;
  values.listPage = 1;
  Framework framework = make(values);
  std::set<std::string> shown;
  const auto begin = [&] {
    const Json::Value page = ask(framework, PACKET_LIST_DIR_REQUEST, R"({"path":"/"})");
    shown.insert(page["entry_list"][0]["path"].asString());
    return "{\"request_id\":\"" + page["request_id"].asString() + "\"}";
  };
  const std::string first = begin();
  const std::string second = begin();
  for (int i = 0; i < 15; ++i) {
    begin();
  }
  EXPECT_EQ(ask(framework, PACKET_LIST_DIR_REQUEST, first)["error"].asString(),
            "unknown request_id");
  const Json::Value rest = ask(framework, PACKET_LIST_DIR_REQUEST, second);
  shown.insert(rest["entry_list"][0]["path"].asString());
  EXPECT_EQ(shown, (std::set<std::string>{"/a", "/b"}));
}

TEST_F(FrameworkAnswers, OfAListingNameAnEntryThatCannotBeListed) {
  touch("large");
  ASSERT_EQ(truncate((dir_.path().string() + "/large").c_str(), 2147483648), 0);
  Framework framework = make();
  EXPECT_EQ(ask(framework, PACKET_LIST_DIR_REQUEST, R"({"path":"/"})")["error"].asString(),
            "\"/large\" has a size or time beyond 32 bits (2147483648 bytes), and a listing cannot "
            "carry it");
  ASSERT_EQ(truncate((dir_.path().string() + "/large").c_str(), 2147483647), 0);
  EXPECT_TRUE(ask(framework, PACKET_LIST_DIR_REQUEST, R"({"path":"/"})")["success"].asBool());
  touch("\xff");
  EXPECT_EQ(ask(framework, PACKET_LIST_DIR_REQUEST, R"({"path":"/"})")["error"].asString(),
            "the name of \"/\\xff\" is not UTF-8, and a listing cannot carry it");
  std::filesystem::create_directory(dir_.path().string() + "/\xfe");
  touch("\xfe/f");
  EXPECT_EQ((*framework.answer(PACKET_LIST_DIR_REQUEST, pathRequest("/\xfe")))["error"].asString(),
            "the name of \"/\\xfe/f\" is not UTF-8, and a listing cannot carry it");
}

TEST_F(FrameworkAnswers, OfAListingIncludeLinksAndOddNames) {
  std::filesystem::create_directory(dir_.path().string() + "/d");
  touch("d/a\nb\"c");
  std::filesystem::create_symlink("/etc/passwd", dir_.path().string() + "/d/l");
  Framework framework = make();
  const Json::Value answer = ask(framework, PACKET_LIST_DIR_REQUEST, R"({"path":"/d/"})");
  std::map<std::string, std::string> types;
  for (const Json::Value &entry : answer["entry_list"]) {
    types[entry["path"].asString()] = entry["type"].asString();
  }
  EXPECT_EQ(types,
            (std::map<std::string, std::string>{{"/d/a\nb\"c", "file"}, {"/d/l", "symlink"}}));
}

}  // namespace
