// The eleven requests: the bytes of each, its result for each kind of answer, and the error state after it.

#include <gtest/gtest.h>
#include <json/value.h>

#include <functional>
#include <list>
#include <string>
#include <vector>

#include "protocol/packet_table.h"
#include "support/framework_end.h"
#include "support/json.h"
#include "support/log_capture.h"
#include "support/log_source.h"
#include "zarn/arvlapp/agent.h"

namespace {

using namespace arvl_test;
using namespace ZARN::ARVLAPP;

// A request that is one exchange, for the tests that apply to all of them.
struct Operation {
  const char *name;
  std::function<bool(Agent &)> call;
  unsigned type;
  std::string payload;
  std::string answer;   // an answer that grants it
  std::string refusal;  // an answer that refuses it with "no"
  std::string since;    // the framework version that brought it; empty: every one
  std::string sendLine;
  std::string receiveLine;
  std::string last;  // the line of an outer call, if there is one
};

std::string refusalWith(const std::string &members) {
  return R"({"success":false,"error":"no")" + members + "}";
}

FileInfo fileAt(const std::string &path) {
  FileInfo file;
  file.setPath(path);
  file.setRegType();
  return file;
}

const std::string kTransferred =
    R"({"success":true,"data":[{"source":{"type":"file","path":"/f"},"success":true}]})";
const std::string kTransferRefused =
    refusalWith(R"(,"data":[{"source":{"type":"file","path":"/f"},"success":false,"error":"no"}])");
const std::string kExportResult =
    R"({"success":true,"export_result":{"success":true,"app_data_version":"1.4"}})";

const std::vector<Operation> &operations() {
  static const std::vector<Operation> all = {
      {"getExportResult",
       [](Agent &agent) {
         Json::Value result;
         return agent.getExportResult(result);
       },
       13, "", kExportResult, refusalWith(""), "",
       "send PACKET_EXPORT_RESULT_REQUEST packet failed", "failed to parse getExportResult output",
       ""},
      {"getAppDataVersion",
       [](Agent &agent) {
         int major = 0;
         int minor = 0;
         return agent.getAppDataVersion(major, minor);
       },
       13, "", kExportResult, refusalWith(""), "",
       "send PACKET_EXPORT_RESULT_REQUEST packet failed", "failed to parse getExportResult output",
       "get export result failed"},
      {"getExportConfig",
       [](Agent &agent) {
         Json::Value config;
         return agent.getExportConfig(config);
       },
       20, "", R"({"success":true,"export_config":{"a":1}})", refusalWith(""), "2.3",
       "send PACKET_EXPORT_CONFIG_REQUEST packet failed", "failed to parse getExportConfig output",
       ""},
      {"getLanguage",
       [](Agent &agent) {
         std::string language;
         return agent.getLanguage(language);
       },
       22, "", R"({"success":true,"language":"enu"})", refusalWith(""), "2.3",
       "send PACKET_LANGUAGE_REQUEST packet failed", "failed to parse getLanguage output", ""},
      {"setProgress", [](Agent &agent) { return agent.setProgress("Exporting mail", 40); }, 25,
       "{\"progress_percentage\":40,\"progress_stage\":\"Exporting mail\"}\n",
       R"({"success":true})", refusalWith(""), "2.3",
       "send PACKET_SET_PROGRESS_REQUEST packet failed", "failed to parse setProgress output", ""},
      {"download",
       [](Agent &agent) {
         DownloadInfo info;
         info.setSource(fileAt("/f"));
         info.setDestinationPath("/d");
         return agent.download(info);
       },
       11,
       R"({"data":[{"destination":{"path":"/d"},"source":{"path":"/f","type":"file"},"with_metadata":false}]})"
       "\n",
       kTransferred, kTransferRefused, "", "send PACKET_DOWNLOAD_REQUEST packet failed",
       "failed to parse listDir output", ""},
      {"upload",
       [](Agent &agent) {
         UploadInfo info;
         info.setSource(fileAt("/f"));
         info.setDestinationPath("/d");
         return agent.upload(info);
       },
       3,
       R"({"data":[{"destination":{"path":"/d"},"source":{"is_temp":false,"path":"/f","type":"file"}}]})"
       "\n",
       kTransferred, kTransferRefused, "", "send PACKET_UPLOAD_REQUEST packet failed",
       "failed to parse upload output", ""},
      {"createDir", [](Agent &agent) { return agent.createDir("/x"); }, 16, "{\"path\":\"/x\"}\n",
       R"({"success":true,"request":{"path":"/x"}})", refusalWith(R"(,"request":{"path":"/x"})"),
       "", "send PACKET_CREATE_DIR_REQUEST packet failed", "failed to parse create dir response",
       ""},
      {"getExternalHandleResult",
       [](Agent &agent) {
         std::list<ExternalDataInfo> results;
         return agent.getExternalHandleResult(results);
       },
       13, "", kExportResult, refusalWith(""), "2.2",
       "send PACKET_EXPORT_RESULT_REQUEST packet failed",
       "failed to parse getExternalHandleResult output", ""},
  };
  return all;
}

LogLines lines(std::initializer_list<std::string> texts) {
  LogLines result;
  for (const std::string &text : texts) {
    if (!text.empty()) {
      result.push_back("agent.cpp: " + text);
    }
  }
  return result;
}

bool isBelow(const std::string &version, const std::string &since) {
  return !since.empty() && version < since;  // of one digit each
}

// Takes the lines and checks that each names the line of its statement.
LogLines takeTrueLines(LogCapture &log) {
  const std::vector<LogRecord> records = log.takeRecords();
  EXPECT_TRUE(nameTheirStatements(records));
  return toLines(records);
}

// A session with a framework of a version, which answers one request at a time.
class Exchange {
 public:
  explicit Exchange(const std::string &version = "2.3") {
    EXPECT_TRUE(openSession(agent, "import", framework, version));
  }

  // One answer to one request.
  void answer(unsigned type, const std::string &payload) {
    framework.finish();
    framework.play([this, type, payload] {
      request = framework.readFrame();
      framework.write(frame(type, payload));
    });
  }

  FrameworkEnd framework;
  Agent agent;
  LogCapture log;
  std::string request;
};

class EveryRequest : public testing::TestWithParam<std::size_t> {
 protected:
  const Operation &operation() const { return operations()[GetParam()]; }
  unsigned answerType() const { return findPacket(static_cast<int>(operation().type))->answer; }
};

TEST_P(EveryRequest, SendsItsBytesAndSucceeds) {
  for (const std::string version : {"1.9", "2.1", "2.2", "2.3", "3.0"}) {
    Exchange exchange(version);
    if (isBelow(version, operation().since)) {
      EXPECT_FALSE(operation().call(exchange.agent));
      EXPECT_EQ(exchange.log.take(),
                lines({"Error: Arvelo framework ver [" + version + "] not support"}));
      EXPECT_EQ(exchange.agent.getErrno(), 3);
      EXPECT_EQ(exchange.agent.getErrorString(), "Arvelo not support");
      continue;
    }
    exchange.answer(answerType(), operation().answer);
    EXPECT_TRUE(operation().call(exchange.agent)) << version;
    exchange.framework.finish();
    EXPECT_EQ(exchange.request, frame(operation().type, operation().payload));
    EXPECT_EQ(exchange.log.take(), LogLines{});
    EXPECT_EQ(exchange.agent.getErrno(), 0);
    EXPECT_EQ(exchange.agent.getErrorString(), "");
  }
}

TEST_P(EveryRequest, ReportsTheReasonOfARefusal) {
  Exchange exchange;
  exchange.answer(answerType(), operation().refusal);
  EXPECT_FALSE(operation().call(exchange.agent));
  EXPECT_EQ(exchange.agent.getErrno(), 2);
  EXPECT_EQ(exchange.agent.getErrorString(), "no");
  EXPECT_EQ(exchange.log.take(), lines({operation().last}));
  // Nothing resets the error state.
  exchange.answer(answerType(), operation().answer);
  EXPECT_TRUE(operation().call(exchange.agent));
  EXPECT_EQ(exchange.agent.getErrno(), 2);
}

TEST_P(EveryRequest, RefusesAnAnswerOfAnotherType) {
  Exchange exchange;
  const bool isProgress = operation().type == 25;
  exchange.answer(isProgress ? 23 : 26, R"({"success":true,"language":"x"})");
  EXPECT_FALSE(operation().call(exchange.agent));
  EXPECT_EQ(exchange.log.take(), lines({"invalid response", operation().last}));
  EXPECT_EQ(exchange.agent.getErrno(), 0);
  exchange.answer(answerType(), operation().answer);  // the other one has been dropped
  EXPECT_TRUE(operation().call(exchange.agent));
}

TEST_P(EveryRequest, RefusesAnInvalidAnswer) {
  Exchange exchange;
  exchange.answer(answerType(), R"({"success":"yes"})");
  EXPECT_FALSE(operation().call(exchange.agent));
  LogLines log = exchange.log.take();
  ASSERT_GE(log.size(), 4u);
  EXPECT_EQ(log[0],
            "protocol_util.cpp: [isBasicResponseObjectValid]: member [success] is not boolean");
  log.erase(log.begin(), log.begin() + 2);
  EXPECT_EQ(log, lines({"invalid packet [" + std::to_string(answerType()) + "]",
                        operation().receiveLine, operation().last}));
  EXPECT_EQ(exchange.agent.getErrno(), 0);
  EXPECT_EQ(exchange.agent.getErrorString(), "");
}

TEST_P(EveryRequest, FailsBeforeInit) {
  LogCapture log;
  Agent agent;
  EXPECT_FALSE(operation().call(agent));
  EXPECT_EQ(log.take(), lines({"Error: not initialized"}));
  EXPECT_EQ(agent.getErrno(), 0);
}

TEST_P(EveryRequest, FailsWhenTheFrameworkClosesDuringItAndLater) {
  Exchange exchange;
  exchange.framework.play([&] {
    exchange.framework.readFrame();
    exchange.framework.write(frame(answerType(), operation().answer).substr(0, 9));
    exchange.framework.close();
  });
  EXPECT_FALSE(operation().call(exchange.agent));
  EXPECT_EQ(takeTrueLines(exchange.log),
            lines({"User canceled, skip recvPacket", operation().receiveLine, operation().last}));
  EXPECT_EQ(exchange.agent.getErrno(), 1);

  EXPECT_FALSE(operation().call(exchange.agent));
  EXPECT_EQ(exchange.agent.getErrno(), 1);
  EXPECT_EQ(exchange.agent.getErrorString(), "");
  if (std::string(operation().name) == "getAppDataVersion") {
    EXPECT_EQ(takeTrueLines(exchange.log), LogLines{}) << "the one that is silent";
  } else {
    EXPECT_EQ(takeTrueLines(exchange.log),
              lines({"User canceled, skip sendPacket", operation().sendLine}));
  }
}

INSTANTIATE_TEST_SUITE_P(Each, EveryRequest, testing::Range<std::size_t>(0, operations().size()),
                         [](const testing::TestParamInfo<std::size_t> &row) {
                           return std::string(operations()[row.param].name);
                         });

TEST(VersionGate, SendsNothingToAFrameworkThatIsTooOld) {
  for (const Operation &operation : operations()) {
    if (operation.since.empty()) {
      continue;
    }
    FrameworkEnd framework;
    std::string wire;
    framework.play([&] { wire = framework.readAll(); });
    {
      Agent agent;
      ASSERT_TRUE(openSession(agent, "import", framework, "1.9"));
      EXPECT_FALSE(operation.call(agent)) << operation.name;
    }
    framework.finish();
    EXPECT_EQ(wire, frame(15, "{\"success\":false}\n")) << operation.name;
  }
}

TEST(VersionGate, ShowsNoVersionOnceTheFrameworkIsGone) {
  Exchange exchange("2.2");
  exchange.framework.close();
  Json::Value result;
  EXPECT_FALSE(exchange.agent.getExportResult(result));
  exchange.log.take();
  std::string language;
  EXPECT_FALSE(exchange.agent.getLanguage(language));
  EXPECT_EQ(exchange.log.take(), lines({"Error: Arvelo framework ver [-1.-1] not support"}));
  EXPECT_EQ(exchange.agent.getErrno(), 3);
}

// ---- The results of each request.

TEST(GetExportResult, ReturnsTheWholeMember) {
  Exchange exchange;
  exchange.answer(
      14, R"({"success":true,"export_result":{"success":1,"app_data_version":"1.4","x":[1]}})");
  Json::Value result("before");
  EXPECT_TRUE(exchange.agent.getExportResult(result));
  EXPECT_EQ(result["app_data_version"].asString(), "1.4");
  EXPECT_EQ(result["x"][0].asInt(), 1);
  exchange.answer(14, R"({"success":false,"error":"none"})");
  EXPECT_FALSE(exchange.agent.getExportResult(result));
  EXPECT_EQ(result["app_data_version"].asString(), "1.4") << "left alone on failure";
}

TEST(GetAppDataVersion, ReturnsTheTwoNumbers) {
  const std::tuple<const char *, int, int> cases[] = {{"1.4", 1, 4},
                                                      {"1.2.3", 1, 2},
                                                      {"2.0beta", 2, 0},
                                                      {"0.0", 0, 0},
                                                      {"2147483647.1", 2147483647, 1}};
  for (const auto &row : cases) {
    Exchange exchange;
    exchange.answer(
        14, std::string(R"({"success":true,"export_result":{"success":true,"app_data_version":")") +
                std::get<0>(row) + "\"}}");
    int major = -7;
    int minor = -7;
    EXPECT_TRUE(exchange.agent.getAppDataVersion(major, minor));
    EXPECT_EQ(major, std::get<1>(row));
    EXPECT_EQ(minor, std::get<2>(row));
  }
  Exchange exchange;
  exchange.answer(14,
                  R"({"success":true,"export_result":{"success":true,"app_data_version":"x"}})");
  int major = -7;
  int minor = -7;
  EXPECT_FALSE(exchange.agent.getAppDataVersion(major, minor));
  EXPECT_EQ(major, -7);
  EXPECT_EQ(minor, -7);
}

TEST(GetExportConfig, ReturnsAnyValue) {
  for (const char *value : {"null", "5", "\"text\"", "[1,{\"a\":null}]", "{\"b\":true}", "false"}) {
    Exchange exchange;
    exchange.answer(21, std::string("{\"success\":true,\"export_config\":") + value + "}");
    Json::Value config("before");
    EXPECT_TRUE(exchange.agent.getExportConfig(config));
    EXPECT_EQ(config, parseJson(value));
  }
}

TEST(GetLanguage, DoesNotChangeTheTextWhenRefused) {
  Exchange exchange;
  exchange.answer(23, R"({"success":false,"error":"not ready"})");
  std::string language = "before";
  EXPECT_FALSE(exchange.agent.getLanguage(language));
  EXPECT_EQ(language, "before");
  EXPECT_EQ(exchange.agent.getErrorString(), "not ready");
  exchange.answer(23, R"({"success":true,"language":"enu"})");
  EXPECT_TRUE(exchange.agent.getLanguage(language));
  EXPECT_EQ(language, "enu");
}

const std::string kSelection =
    R"({"success":true,"backup_folders":[{"object":"docs"}],"backup_apps":[{"object":"mail"}]})";

TEST(GetSelectedSource, FillsTheRecord) {
  Exchange exchange;
  exchange.answer(19, kSelection);
  SelectedSourceInfo source;
  EXPECT_TRUE(exchange.agent.getSelectedSource(source));
  exchange.framework.finish();
  EXPECT_EQ(exchange.request, frame(18, ""));
  EXPECT_EQ(source.getDisplayString(), "Folders: [docs], Apps: [mail]");
}

TEST(GetSelectedSource, IgnoresSuccess) {
  Exchange exchange;
  exchange.answer(19, kSelection);
  SelectedSourceInfo source;
  EXPECT_TRUE(exchange.agent.getSelectedSource(source));
  exchange.answer(19, R"({"success":false,"error":"x","backup_folders":[],"backup_apps":[]})");
  EXPECT_TRUE(exchange.agent.getSelectedSource(source));
  EXPECT_EQ(source.getDisplayString(), "Folders: [], Apps: []");
  EXPECT_EQ(exchange.agent.getErrno(), 0);
}

TEST(GetSelectedSource, AsksEveryFrameworkSince23) {
  for (const char *version : {"2.3", "2.10", "3.0"}) {
    Exchange exchange(version);
    exchange.answer(19, kSelection);
    SelectedSourceInfo source;
    ASSERT_TRUE(exchange.agent.getSelectedSource(source)) << version;
    exchange.framework.finish();
    EXPECT_EQ(exchange.request, frame(18, "")) << version;
    EXPECT_EQ(exchange.log.take(), LogLines{}) << version;
    EXPECT_EQ(exchange.agent.getErrno(), 0) << version;
  }
}

TEST(GetSelectedSource, SendsNothingToAFrameworkThatIsTooOld) {
  FrameworkEnd framework;
  std::string wire;
  framework.play([&] { wire = framework.readAll(); });
  {
    LogCapture log;
    Agent agent;
    ASSERT_TRUE(openSession(agent, "import", framework, "2.2"));
    SelectedSourceInfo source;
    EXPECT_FALSE(agent.getSelectedSource(source));
    EXPECT_EQ(log.take(), lines({"Error: Arvelo framework ver [2.2] not support"}));
    EXPECT_EQ(agent.getErrno(), 3);
    EXPECT_EQ(agent.getErrorString(), "Arvelo not support");
  }
  framework.finish();
  EXPECT_EQ(wire, frame(15, "{\"success\":false}\n")) << "the completion alone";
}

TEST(GetSelectedSource, FailsBeforeInit) {
  SelectedSourceInfo source;
  LogCapture log;
  Agent agent;
  EXPECT_FALSE(agent.getSelectedSource(source));
  EXPECT_EQ(log.take(), lines({"Error: not initialized"}));
  EXPECT_EQ(agent.getErrno(), 0);
  EXPECT_EQ(agent.getErrorString(), "");
}

TEST(GetSelectedSource, FailsLikeTheOtherRequests) {
  SelectedSourceInfo source;
  Exchange exchange;
  exchange.answer(19, R"({"success":false,"error":"x"})");
  EXPECT_FALSE(exchange.agent.getSelectedSource(source));
  EXPECT_EQ(
      exchange.log.take(),
      (LogLines{"protocol_util.cpp: [isSelectedSourceResponseValid]: member [backup_folders] is "
                "not a string",
                "protocol_util.cpp: folder is not array", "agent.cpp: invalid packet [19]",
                "agent.cpp: failed to parse getSelectedSource output"}));
  EXPECT_EQ(exchange.agent.getErrno(), 0);
  exchange.answer(26, R"({"success":true})");
  EXPECT_FALSE(exchange.agent.getSelectedSource(source));
  EXPECT_EQ(exchange.log.take(), lines({"invalid response"}));
  exchange.framework.finish();
  exchange.framework.close();
  EXPECT_FALSE(exchange.agent.getSelectedSource(source));
  exchange.log.take();
  EXPECT_FALSE(exchange.agent.getSelectedSource(source));
  EXPECT_EQ(exchange.log.take(), lines({"User canceled, skip sendPacket",
                                        "send PACKET_SELECTED_SOURCE_REQUEST packet failed"}));
}

TEST(SetProgress, SendsWhateverItIsGiven) {
  const std::tuple<std::string, int, std::string> cases[] = {
      {"x", 150, R"({"progress_percentage":150,"progress_stage":"x"})"},
      {"x", -1, R"({"progress_percentage":-1,"progress_stage":"x"})"},
      {"", 0, R"({"progress_percentage":0,"progress_stage":""})"},
      {"100 % %s %n", 1, R"({"progress_percentage":1,"progress_stage":"100 % %s %n"})"},
      {"a\"b\\c/\b\f\n\r\t\x01\x1f", 1,
       R"({"progress_percentage":1,"progress_stage":"a\"b\\c/\b\f\n\r\t\u0001\u001f"})"},
      {std::string("n\0l", 3), 1, R"({"progress_percentage":1,"progress_stage":"n\u0000l"})"},
      {"\xC3\xBC\xF0\x9F\x93\x9D", 1,
       R"({"progress_percentage":1,"progress_stage":"\u00fc\ud83d\udcdd"})"},
  };
  for (const auto &row : cases) {
    Exchange exchange;
    exchange.answer(26, R"({"success":true})");
    EXPECT_TRUE(exchange.agent.setProgress(std::get<0>(row), std::get<1>(row)));
    exchange.framework.finish();
    EXPECT_EQ(exchange.request, frame(25, std::get<2>(row) + "\n"));
  }
}

TEST(SetProgress, SendsEveryPrintableCharacterAsItIs) {
  std::string stage;
  std::string expected;
  for (char c = ' '; c <= '~'; ++c) {
    stage += c;
    expected += (c == '"' || c == '\\') ? std::string("\\") + c : std::string(1, c);
  }
  Exchange exchange;
  exchange.answer(26, R"({"success":true})");
  EXPECT_TRUE(exchange.agent.setProgress(stage, 1));
  exchange.framework.finish();
  EXPECT_EQ(exchange.request,
            frame(25, "{\"progress_percentage\":1,\"progress_stage\":\"" + expected + "\"}\n"));
}

std::string transferRequest(const std::string &version, bool isDownload, int percentage,
                            void (*shape)(FileInfo &)) {
  Exchange exchange(version);
  exchange.answer(isDownload ? 12 : 4, kTransferred);
  FileInfo source;
  source.setPath("/vol/backup/mail.db");
  shape(source);
  if (isDownload) {
    DownloadInfo info;
    info.setSource(source);
    info.setDestinationPath("/tmp/restore");
    info.setPercentage(percentage);
    EXPECT_TRUE(exchange.agent.download(info));
  } else {
    UploadInfo info;
    info.setSource(source);
    info.setDestinationPath("/tmp/restore");
    info.setPercentage(percentage);
    EXPECT_TRUE(exchange.agent.upload(info));
  }
  exchange.framework.finish();
  return exchange.request;
}

TEST(Transfers, CarryAPercentageAboveZeroToAFrameworkThatKnowsIt) {
  const auto regular = [](FileInfo &file) { file.setRegType(); };
  const auto download = [](const std::string &percentage) {
    return frame(
        11, R"({"data":[{"destination":{"path":"/tmp/restore"},)" + percentage +
                R"("source":{"path":"/vol/backup/mail.db","type":"file"},"with_metadata":false}]})"
                "\n");
  };
  EXPECT_EQ(transferRequest("2.3", true, 40, regular), download(R"("progress_percentage":40,)"));
  EXPECT_EQ(transferRequest("3.0", true, 400, regular), download(R"("progress_percentage":400,)"));
  EXPECT_EQ(transferRequest("2.3", true, 1, regular), download(R"("progress_percentage":1,)"));
  EXPECT_EQ(transferRequest("2.2", true, 40, regular), download(""));
  EXPECT_EQ(transferRequest("2.3", true, 0, regular), download(""));
  EXPECT_EQ(transferRequest("2.3", true, -1, regular), download(""));

  const auto upload = [](const std::string &percentage) {
    return frame(3,
                 R"({"data":[{"destination":{"path":"/tmp/restore"},)" + percentage +
                     R"("source":{"is_temp":true,"path":"/vol/backup/mail.db","type":"symlink"}}]})"
                     "\n");
  };
  const auto temporaryLink = [](FileInfo &file) {
    file.setSymlinkType();
    file.setTemp(true);
  };
  EXPECT_EQ(transferRequest("2.3", false, 40, temporaryLink),
            upload(R"("progress_percentage":40,)"));
  EXPECT_EQ(transferRequest("2.2", false, 40, temporaryLink), upload(""));
  EXPECT_EQ(transferRequest("2.3", false, 0, temporaryLink), upload(""));
}

TEST(Transfers, SendASourceWithoutATypeAsItIs) {
  EXPECT_EQ(
      transferRequest("2.3", true, 0, [](FileInfo &) {}),
      frame(11, R"({"data":[{"destination":{"path":"/tmp/restore"},)"
                R"("source":{"path":"/vol/backup/mail.db","type":"none"},"with_metadata":false}]})"
                "\n"));
}

TEST(CreateDir, RefusesAPathThatIsNotAbsoluteItself) {
  Exchange exchange;
  EXPECT_FALSE(exchange.agent.createDir(""));
  EXPECT_FALSE(exchange.agent.createDir("data/x"));
  EXPECT_EQ(exchange.log.take(),
            lines({"Bad param, [] is not abs path", "Bad param, [data/x] is not abs path"}));
  EXPECT_EQ(exchange.agent.getErrno(), 0);
  EXPECT_FALSE(Agent().createDir("data/x"));
  EXPECT_EQ(exchange.log.take(), lines({"Error: not initialized"}));
  for (const char *path : {"/", "/a/../b", "//x"}) {
    exchange.answer(17, R"({"success":true,"request":{"path":"/"}})");
    EXPECT_TRUE(exchange.agent.createDir(path));
    exchange.framework.finish();
    EXPECT_EQ(exchange.request, frame(16, std::string("{\"path\":\"") + path + "\"}\n"));
  }
}

TEST(GetExternalHandleResult, AppendsTheRecordsInOrder) {
  Exchange exchange("2.2");
  std::list<ExternalDataInfo> results(1);
  exchange.answer(14,
                  R"({"success":true,"export_result":{"success":true,"app_data_version":"1.0"},)"
                  R"("external_handler_result":[{"handler":"a","handler_type":"t","result":null},)"
                  R"({"handler":"b","handler_type":"u","result":{"n":3}}]})");
  EXPECT_TRUE(exchange.agent.getExternalHandleResult(results));
  ASSERT_EQ(results.size(), 3u);
  EXPECT_EQ(results.front().getExternalHandleName(), "");
  EXPECT_EQ((++results.begin())->getExternalHandleName(), "a");
  EXPECT_EQ(results.back().getExternalHandleName(), "b");
  EXPECT_EQ(results.back().getExternalHandleType(), "u");
  EXPECT_EQ(results.back().getExternalHandleResult()["n"].asInt(), 3);

  exchange.answer(14, kExportResult);
  EXPECT_TRUE(exchange.agent.getExternalHandleResult(results));
  EXPECT_EQ(results.size(), 3u) << "no handler: nothing is appended";

  exchange.answer(14,
                  R"({"success":true,"export_result":{"success":true,"app_data_version":"1.0"},)"
                  R"("external_handler_result":[]})");
  EXPECT_FALSE(exchange.agent.getExternalHandleResult(results));
  EXPECT_EQ(exchange.log.take(),
            (LogLines{"protocol_util.cpp: [isExternalHandlerResultValid] error: length of array "
                      "[external_handler_result][0] is less than 1",
                      "protocol_util.cpp: invalid external handler result",
                      "agent.cpp: invalid packet [14]",
                      "agent.cpp: failed to parse getExternalHandleResult output"}));
  EXPECT_EQ(results.size(), 3u);

  exchange.answer(14, R"({"success":false,"error":"no export"})");
  EXPECT_FALSE(exchange.agent.getExternalHandleResult(results));
  EXPECT_EQ(results.size(), 3u);
  EXPECT_EQ(exchange.agent.getErrno(), 2);
  EXPECT_EQ(exchange.agent.getErrorString(), "no export");
}

// ---- Listings.

TEST(CreateDir, TreatsARefusalWithoutAnEchoAsAnInvalidPacket) {
  Exchange exchange;
  exchange.answer(17, refusalWith(""));
  EXPECT_FALSE(exchange.agent.createDir("/x"));
  EXPECT_EQ(exchange.log.take(),
            (LogLines{"protocol_util.cpp: no member [request]",
                      "protocol_util.cpp: invalid create dir response: no [request]",
                      "agent.cpp: invalid packet [17]",
                      "agent.cpp: failed to parse create dir response"}));
  EXPECT_EQ(exchange.agent.getErrno(), 0);
  EXPECT_EQ(exchange.agent.getErrorString(), "");
}

std::string page(const std::string &entries, const std::string &end) {
  return R"({"success":true,"request":{"path":"/"},"entry_list":[)" + entries + "]," + end + "}";
}

const std::string kLast = R"("list_complete":true)";

std::string entry(const std::string &path, const std::string &type, const std::string &size = "1") {
  return R"({"path":")" + path + R"(","type":")" + type + R"(","mtime":7,"size":)" + size + "}";
}

std::vector<std::string> pathsOf(const std::list<FileInfo> &entries) {
  std::vector<std::string> paths;
  for (const FileInfo &file : entries) {
    paths.push_back(file.getPath());
  }
  return paths;
}

TEST(ListDir, TakesOnePage) {
  Exchange exchange("1.0");
  std::list<FileInfo> entries(3);
  exchange.answer(8,
                  page(entry("/a", "file", "2147483647") + "," + entry("/b", "dir", "0"), kLast));
  EXPECT_TRUE(exchange.agent.listDir("/d", entries));
  exchange.framework.finish();
  EXPECT_EQ(exchange.request, frame(7, "{\"path\":\"/d\"}\n"));
  ASSERT_EQ(pathsOf(entries), (std::vector<std::string>{"/a", "/b"}));
  EXPECT_TRUE(entries.front().isRegType());
  EXPECT_EQ(entries.front().getSizeByte(), 2147483647);
  EXPECT_EQ(entries.front().getMtime(), 7);
  EXPECT_FALSE(entries.front().isTemp());
  EXPECT_TRUE(entries.back().isDirType());
  EXPECT_EQ(entries.back().getSizeByte(), 0);
  EXPECT_EQ(exchange.log.take(), LogLines{});
}

TEST(ListDir, TakesAnEmptyListing) {
  Exchange exchange;
  std::list<FileInfo> entries(1);
  exchange.answer(8, page("", kLast));
  EXPECT_TRUE(exchange.agent.listDir("/d", entries));
  EXPECT_TRUE(entries.empty());
}

// Asks for page after page; the request of each.
std::vector<std::string> requestsOf(const std::vector<std::string> &pages, bool &succeeded,
                                    std::list<FileInfo> &entries, LogLines &log) {
  std::vector<std::string> requests;
  Exchange exchange;
  exchange.framework.play([&] {
    for (const std::string &payload : pages) {
      requests.push_back(exchange.framework.readFrame());
      exchange.framework.write(frame(8, payload));
    }
  });
  succeeded = exchange.agent.listDir("/d", entries);
  exchange.framework.finish();
  log = exchange.log.take();
  return requests;
}

TEST(ListDir, CarriesTheTokenOfEachPageToTheNext) {
  std::list<FileInfo> entries;
  bool succeeded = false;
  LogLines log;
  const std::vector<std::string> requests = requestsOf(
      {page(entry("/a", "file"), R"("list_complete":false,"request_id":"r %1")"),
       page("", R"("list_complete":false,"request_id":"")"), page(entry("/b", "dir"), kLast)},
      succeeded, entries, log);
  EXPECT_TRUE(succeeded);
  EXPECT_EQ(requests, (std::vector<std::string>{frame(7, "{\"path\":\"/d\"}\n"),
                                                frame(7, "{\"request_id\":\"r %1\"}\n"),
                                                frame(7, "{\"request_id\":\"\"}\n")}));
  EXPECT_EQ(pathsOf(entries), (std::vector<std::string>{"/a", "/b"}));
  EXPECT_EQ(log, LogLines{});
}

TEST(ListDir, RefusesATokenThatIsNotAString) {
  for (const char *token : {"5", "null", "[]", "{}", "true", "1.5"}) {
    std::list<FileInfo> entries;
    bool succeeded = true;
    LogLines log;
    requestsOf(
        {page(entry("/a", "file"), std::string(R"("list_complete":false,"request_id":)") + token)},
        succeeded, entries, log);
    EXPECT_FALSE(succeeded);
    EXPECT_EQ(
        log, (LogLines{
                 "protocol_util.cpp: [isListDirResponseValid]: member [request_id] is not a string",
                 "agent.cpp: invalid packet [8]", "agent.cpp: failed to parse listDir output"}));
    EXPECT_TRUE(entries.empty());
  }
}

TEST(ListDir, KeepsTheEntriesBeforeOneThatIsNeitherFileNorDirectory) {
  std::list<FileInfo> entries;
  bool succeeded = true;
  LogLines log;
  requestsOf(
      {page(entry("/a", "file"), R"("list_complete":false,"request_id":"t")"),
       page(entry("/b", "file") + "," + entry("/l", "symlink") + "," + entry("/c", "file"), kLast)},
      succeeded, entries, log);
  EXPECT_FALSE(succeeded);
  EXPECT_EQ(pathsOf(entries), (std::vector<std::string>{"/a", "/b"}));
  EXPECT_EQ(log, lines({"Error: path [/l] is not support file type [symlink]",
                        "JsonToFileInfo failed", "parse entry_list failed"}));
}

TEST(ListDir, RefusesANegativeSizeEvenOfADirectory) {
  for (const char *type : {"file", "dir"}) {
    std::list<FileInfo> entries;
    bool succeeded = true;
    LogLines log;
    requestsOf({page(entry("/a", type, "-1"), kLast)}, succeeded, entries, log);
    EXPECT_FALSE(succeeded);
    EXPECT_TRUE(entries.empty());
    EXPECT_EQ(log, lines({"Error: size is negative [-1]", "JsonToFileInfo failed",
                          "parse entry_list failed"}));
  }
}

TEST(ListDir, RefusesASizeOf64Bits) {
  std::list<FileInfo> entries;
  bool succeeded = true;
  LogLines log;
  requestsOf({page(entry("/a", "file", "4294967296"), kLast)}, succeeded, entries, log);
  EXPECT_FALSE(succeeded);
  EXPECT_EQ(log, (LogLines{"protocol_util.cpp: [isListDirEntryValid]: member [size] is not a int",
                           "agent.cpp: invalid packet [8]",
                           "agent.cpp: failed to parse listDir output"}));
}

TEST(ListDir, ReportsTheReasonOfARefusal) {
  Exchange exchange;
  std::list<FileInfo> entries(1);
  exchange.answer(8, refusalWith(R"(,"request":{"path":"/d"})"));
  EXPECT_FALSE(exchange.agent.listDir("/d", entries));
  EXPECT_TRUE(entries.empty());
  EXPECT_EQ(exchange.agent.getErrno(), 2);
  EXPECT_EQ(exchange.agent.getErrorString(), "no");
  EXPECT_EQ(exchange.log.take(), LogLines{});
}

// The type of a page is not compared: any valid packet that says success and completes will do.
TEST(ListDir, AcceptsAnyPacketAsAPage) {
  Exchange exchange;
  std::list<FileInfo> entries;
  exchange.answer(26, R"({"success":true,"list_complete":true})");
  EXPECT_TRUE(exchange.agent.listDir("/d", entries));
  exchange.framework.finish();
  exchange.framework.play([&] {
    exchange.framework.readFrame();
    exchange.framework.write(frame(26, R"({"success":true})"));
    exchange.request = exchange.framework.readFrame();
    exchange.framework.write(frame(8, page("", kLast)));
  });
  EXPECT_TRUE(exchange.agent.listDir("/d", entries));
  exchange.framework.finish();
  EXPECT_EQ(exchange.request, frame(7, "{\"request_id\":null}\n"));
  exchange.answer(22, R"({})");  // a request, valid whatever it holds, is a refusal without words
  EXPECT_FALSE(exchange.agent.listDir("/d", entries));
  EXPECT_EQ(exchange.agent.getErrno(), 2);
  EXPECT_EQ(exchange.agent.getErrorString(), "");
}

// A listing response must have a text for its token; a packet of another type may have anything.
TEST(ListDir, SendsATokenOfAnyJsonTypeUnchanged) {
  for (const std::string token : {"null", "true", "false", "5", "-9223372036854775808", "1.5",
                                  "\"t\"", "[1,\"x\",null]", "{\"a\":[{}]}"}) {
    Exchange exchange;
    exchange.framework.play([&] {
      exchange.framework.readFrame();
      exchange.framework.write(frame(26, R"({"success":true,"request_id":)" + token + "}"));
      exchange.request = exchange.framework.readFrame();
      exchange.framework.write(frame(8, page("", kLast)));
    });
    std::list<FileInfo> entries;
    ASSERT_TRUE(exchange.agent.listDir("/d", entries)) << token;
    exchange.framework.finish();
    EXPECT_EQ(exchange.request, frame(7, "{\"request_id\":" + token + "}\n"));
  }
}

TEST(ListDir, SendsARelativePathAsGiven) {
  Exchange exchange;
  std::list<FileInfo> entries;
  exchange.answer(8, page("", kLast));
  EXPECT_TRUE(exchange.agent.listDir("a/../b", entries));
  exchange.framework.finish();
  EXPECT_EQ(exchange.request, frame(7, "{\"path\":\"a/../b\"}\n"));
  EXPECT_EQ(exchange.log.take(), LogLines{});
}

TEST(ListDir, ThrowsTheConversionErrorOfAnotherPacket) {
  Exchange exchange;
  std::list<FileInfo> entries;
  const std::string named = R"({"a":)" + entry("/a", "file") + "}";
  for (const std::string &list : {std::string(R"({"a":1})"), named, std::string("[5]")}) {
    exchange.answer(26, R"({"success":true,"list_complete":true,"entry_list":)" + list + "}");
    EXPECT_THROW(exchange.agent.listDir("/d", entries), Json::LogicError) << list;
    EXPECT_TRUE(entries.empty());
    exchange.framework.finish();
  }
  for (const std::string list : {"null", "{}", "\"text\"", "7"}) {
    exchange.answer(26, R"({"success":true,"list_complete":true,"entry_list":)" + list + "}");
    EXPECT_TRUE(exchange.agent.listDir("/d", entries)) << list;
    EXPECT_TRUE(entries.empty());
    exchange.framework.finish();
  }
  exchange.answer(8, page(entry("/a", "file"), kLast));
  EXPECT_TRUE(exchange.agent.listDir("/d", entries));
}

TEST(ListDir, KeepsTheOldEntriesOnlyBeforeInit) {
  LogCapture log;
  Agent agent;
  std::list<FileInfo> entries(2);
  EXPECT_FALSE(agent.listDir("/d", entries));
  EXPECT_EQ(entries.size(), 2u);
  EXPECT_EQ(log.take(), lines({"Error: not initialized"}));

  Exchange exchange;
  exchange.framework.close();
  EXPECT_FALSE(exchange.agent.listDir("/d", entries));
  EXPECT_TRUE(entries.empty());
  EXPECT_EQ(takeTrueLines(exchange.log).back(), "agent.cpp: failed to parse listDir output");
  EXPECT_FALSE(exchange.agent.listDir("/d", entries));
  EXPECT_EQ(takeTrueLines(exchange.log), lines({"User canceled, skip sendPacket",
                                                "send PACKET_LIST_DIR_REQUEST packet failed"}));
}

void expectLongListing(std::size_t count, std::size_t perPage) {
  Exchange exchange;
  exchange.framework.play([&] {
    for (std::size_t first = 0; first < count; first += perPage) {
      exchange.framework.readFrame();
      std::string list;
      for (std::size_t i = first; i < first + perPage && i < count; ++i) {
        list += (i == first ? "" : ",") + entry("/" + std::to_string(i), "file");
      }
      exchange.framework.write(frame(
          8, page(list,
                  first + perPage >= count ? kLast : R"("list_complete":false,"request_id":"t")")));
    }
  });
  std::list<FileInfo> entries;
  EXPECT_TRUE(exchange.agent.listDir("/", entries));
  ASSERT_EQ(entries.size(), count);
  std::size_t i = 0;
  for (const FileInfo &file : entries) {
    ASSERT_EQ(file.getPath(), "/" + std::to_string(i++));
  }
}

TEST(ListDir, TakesListingsOfManyEntriesInPagesOfEveryKind) {
  expectLongListing(1000, 1);
  expectLongListing(1000, 7);
  expectLongListing(1000, 1000);
  expectLongListing(1000000, 100000);
}

}  // namespace
