#include "torture/scenarios.h"

#include <json/value.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <list>

#include "protocol/packet_frame.h"
#include "zarn/arvlapp/protocol_util.h"

namespace arvl_test {

namespace {

using namespace ZARN::ARVLAPP;

std::string frame(PACKET_TYPE type, const std::string &payload) {
  PacketHeader header;
  header.type = static_cast<std::uint16_t>(type);
  header.payloadLength = static_cast<std::uint32_t>(payload.size());
  const PacketHeaderBytes bytes = encodePacketHeader(header);
  return std::string(bytes.begin(), bytes.end()) + payload;
}

const char kSuccess[] = "{\"success\":true}\n";
const char kFailure[] = "{\"success\":false}\n";
const char kRefusal[] =
    R"({"success":false,"error":"a reason that is longer than a small string"})";
const char kExportResult[] =
    R"({"success":true,"export_result":{"success":true,"app_data_version":"3.12","x":[1,{"y":2}]}})";
const char kHandlerResults[] =
    R"({"success":true,"export_result":{"success":true,"app_data_version":"1.0"},)"
    R"("external_handler_result":[{"handler":"mail","handler_type":"share","result":{"n":[1,2]}},)"
    R"({"handler":"calendar of the whole family","handler_type":"t","result":null}]})";
const char kTransferred[] =
    R"({"success":true,"data":[{"source":{"type":"file","path":"/a"},"success":true}]})";

// Evaluates expectations in order. The first that fails decides the verdict.
class Verdict {
 public:
  // A call that must succeed.
  Verdict &call(bool succeeded) { return note(succeeded, Result::kFailed); }
  // A value that must be right once the calls before have succeeded.
  Verdict &value(bool right) { return note(right, Result::kWrong); }
  bool isGood() const { return result_ == Result::kAsExpected; }
  Result result() const { return result_; }

 private:
  Verdict &note(bool good, Result otherwise) {
    if (isGood() && !good) {
      result_ = otherwise;
    }
    return *this;
  }

  Result result_ = Result::kAsExpected;
};

Result succeed(Agent &agent, const Verdict &verdict) {
  if (verdict.isGood()) {
    agent.setSuccess();
  }
  return verdict.result();
}

// A small tree of a file, a link and a directory. Created once, removed at exit.
class Tree {
 public:
  Tree() {
    char name[] = "/tmp/arvl-torture-XXXXXX";
    if (mkdtemp(name) == nullptr || mkdir((std::string(name) + "/sub").c_str(), 0755) != 0 ||
        symlink("target", (std::string(name) + "/link").c_str()) != 0) {
      abort();
    }
    path_ = name;
  }
  ~Tree() {
    unlink((path_ + "/link").c_str());
    rmdir((path_ + "/sub").c_str());
    rmdir(path_.c_str());
  }
  const std::string &path() const { return path_; }

 private:
  std::string path_;
};

const std::string &treePath() {
  static const Tree tree;
  return tree.path();
}

Result estimate(Agent &agent) {
  StorageUsage usage;
  Verdict verdict;
  verdict.call(usage.addDirRecursive(treePath())).value(usage.getDirCount() == 2);
  verdict.call(usage.addOne(treePath() + "/link")).value(usage.getFileCount() == 2);
  StorageUsage fixed;
  verdict.call(fixed.addOne("/dev/null/x") || true);  // fails, and counts nothing
  fixed = StorageUsage(fixed);
  agent.setStorageUsage(fixed);
  return succeed(agent, verdict);
}

Result summarize(Agent &agent) {
  SummaryInfo info;
  info.setSummaryInfo("a short text of a backup", "a long text of a backup", "a restore", "texts");
  const SummaryInfo copy(info);
  agent.setSummaryInfo(copy);
  return succeed(agent, Verdict().value(copy.getBackupLong() == "a long text of a backup"));
}

Result fail(Agent &agent) {
  agent.setErrorMsg("the section of the message", "the key of the message");
  return Result::kAsExpected;
}

Result queryAll(Agent &agent) {
  Verdict verdict;
  Json::Value result;
  verdict.call(agent.getExportResult(result));
  verdict.value(verdict.isGood() && result["x"][1]["y"].asInt() == 2);
  std::string language;
  verdict.call(verdict.isGood() && agent.getLanguage(language)).value(language == "enu");
  return succeed(agent, verdict);
}

Result getVersion(Agent &agent) {
  int major = 0;
  int minor = 0;
  return succeed(agent, Verdict()
                            .call(agent.getAppDataVersion(major, minor))
                            .value(major == 3 && minor == 12)
                            .value(agent.getFrameworkMajorVersion() == 2)
                            .value(agent.getFrameworkMinorVersion() == 3)
                            .value(agent.isVerionNotLessThan(2, 3)));
}

Result getSelection(Agent &agent) {
  SelectedSourceInfo source;
  Verdict verdict;
  verdict.call(agent.getSelectedSource(source));
  const SelectedSourceInfo copy(source);
  verdict.value(copy.getDisplayString() == "Folders: [documents and pictures, b], Apps: [mail]");
  return succeed(agent, verdict);
}

Result getConfig(Agent &agent) {
  Json::Value config;
  Verdict verdict;
  verdict.call(agent.getExportConfig(config));
  return succeed(agent, verdict.value(config.isArray() && config.size() == 3));
}

Result getLanguage(Agent &agent) {
  std::string language;
  return succeed(agent, Verdict().call(agent.getLanguage(language)).value(language == "enu"));
}

Result setProgress(Agent &agent) {
  return succeed(agent,
                 Verdict().call(agent.setProgress("a stage with a name of some length", 40)));
}

FileInfo sourceFile() {
  FileInfo file;
  file.setPath("/volume/of/the/application/file");
  file.setRegType();
  file.setTemp(true);
  return file;
}

Result download(Agent &agent) {
  DownloadInfo info;
  info.setSource(sourceFile());
  info.setDestinationPath("/tmp/a directory to restore into");
  info.setPercentage(40);
  const DownloadInfo copy(info);
  return succeed(agent, Verdict().value(copy.getPercentage() == -1).call(agent.download(info)));
}

Result upload(Agent &agent) {
  UploadInfo info;
  info.setSource(sourceFile());
  info.setDestinationPath("/a directory on the other side");
  info.setPercentage(40);
  UploadInfo copy;
  copy = info;
  return succeed(agent, Verdict().value(copy.getSource().isTemp()).call(agent.upload(copy)));
}

Result createDir(Agent &agent) {
  return succeed(agent, Verdict().call(agent.createDir("/a directory on the other side")));
}

Result getHandlers(Agent &agent) {
  std::list<ExternalDataInfo> results;
  Verdict verdict;
  verdict.call(agent.getExternalHandleResult(results)).value(results.size() == 2);
  verdict.value(results.empty() ||
                results.back().getExternalHandleName() == "calendar of the whole family");
  return succeed(agent, verdict);
}

Result listTwoPages(Agent &agent) {
  std::list<FileInfo> entries;
  Verdict verdict;
  verdict.call(agent.listDir("/a directory on the other side", entries));
  verdict.value(entries.size() == 3);
  verdict.value(entries.empty() || entries.back().getTypeStr() == "dir");
  return succeed(agent, verdict);
}

// The framework refuses these requests, so the calls must fail.
Result beRefused(Agent &agent) {
  const bool granted = agent.setProgress("stage", 1);
  if (!granted && agent.getErrno() != 2) {
    return Result::kFailed;
  }
  return succeed(agent,
                 Verdict().value(!granted).value(agent.getErrorString() ==
                                                 "a reason that is longer than a small string"));
}

// An invalid answer, or an answer to another request, is never a success.
Result beMisanswered(Agent &agent) {
  std::string language = "before";
  const bool succeeded = agent.getLanguage(language);
  return succeed(agent, Verdict().value(!succeeded && language == "before"));
}

Result judgePackets(Agent &agent) {
  Json::Value payload(Json::objectValue);
  payload["success"] = true;
  Verdict verdict;
  verdict.value(Util::packetString(PACKET_LANGUAGE_REQUEST) == "PACKET_LANGUAGE_REQUEST");
  verdict.call(Util::isValidPacket(PACKET_IMPORT_COMPLETE, payload));
  verdict.value(!Util::isValidPacket(PACKET_LANGUAGE_RESPONSE, payload));
  verdict.value(!Util::isValidPacket(PACKET_SET_PROGRESS_RESPONSE, Json::Value("text")));
  return succeed(agent, verdict);
}

// clang-format off
std::vector<Scenario> makeScenarios() {
  const std::string done = frame(PACKET_IMPORT_COMPLETE, kSuccess);
  const std::string progressed = frame(PACKET_SET_PROGRESS_RESPONSE, kSuccess);
  const std::string language =
      frame(PACKET_LANGUAGE_RESPONSE, "{\"success\":true,\"language\":\"enu\"}\n");
  const std::string page1 = frame(
      PACKET_LIST_DIR_RESPONSE,
      R"({"success":true,"request":{"path":"/d"},"list_complete":false,"request_id":"token",)"
      R"("entry_list":[{"path":"/d/a file with a long name","type":"file","mtime":1,"size":2}]})");
  const std::string page2 =
      frame(PACKET_LIST_DIR_RESPONSE,
            R"({"success":true,"request":{"request_id":"token"},"list_complete":true,)"
            R"("entry_list":[{"path":"/d/b","type":"file","mtime":1,"size":0},)"
            R"({"path":"/d/c","type":"dir","mtime":1,"size":4096}]})");
  const auto succeedAtOnce = [](Agent &agent) { return succeed(agent, Verdict()); };
  const auto exportData = [](Agent &agent) {
    agent.setAppDataVersion(3, 12);
    return succeed(agent, Verdict());
  };

  return {
      {"a summary",
       "summary",
       {},
       frame(
           PACKET_SUMMARY_RESULT,
           R"({"backup_long":"a long text of a backup","backup_short":"a short text of a backup","restore_long":"texts","restore_short":"a restore","success":true})"
           "\n"),
       summarize},
      {"an estimate",
       "estimate_exportion",
       {},
       frame(PACKET_ESTIMATE_EXPORTION_RESULT,
             R"({"block_size":0,"dir_count":0,"file_count":0,"size":0,"success":true})"
             "\n"),
       estimate},
      {"can_export", "can_export", {}, frame(PACKET_CAN_EXPORT_RESULT, kSuccess), succeedAtOnce},
      {"an export",
       "export",
       {},
       frame(PACKET_EXPORT_COMPLETE, "{\"app_data_version\":\"3.12\",\"success\":true}\n"),
       exportData},
      {"an export without a version",
       "export",
       {},
       frame(PACKET_EXPORT_COMPLETE, kFailure),
       succeedAtOnce},
      {"can_import", "can_import", {}, frame(PACKET_CAN_IMPORT_RESULT, kSuccess), succeedAtOnce},
      {"an import", "import", {}, done, succeedAtOnce},
      {"a failure with its reason",
       "import",
       {},
       frame(
           PACKET_IMPORT_COMPLETE,
           R"({"err_msg":{"key":"the key of the message","section":"the section of the message"},"success":false})"
           "\n"),
       fail},
      {"two queries",
       "import",
       {frame(PACKET_EXPORT_RESULT_RESPONSE, kExportResult), language},
       done,
       queryAll},
      {"getAppDataVersion",
       "import",
       {frame(PACKET_EXPORT_RESULT_RESPONSE, kExportResult)},
       done,
       getVersion},
      {"getSelectedSource",
       "import",
       {frame(
           PACKET_SELECTED_SOURCE_RESPONSE,
           R"({"success":true,"backup_folders":[{"object":"documents and pictures"},{"object":"b"}],"backup_apps":[{"object":"mail"}]})")},
       done,
       getSelection},
      {"getExportConfig",
       "import",
       {frame(PACKET_EXPORT_CONFIG_RESPONSE,
              R"({"success":true,"export_config":[1,"two",{"three":3}]})")},
       done,
       getConfig},
      {"getLanguage", "import", {language}, done, getLanguage},
      {"setProgress", "import", {progressed}, done, setProgress},
      {"download", "import", {frame(PACKET_DOWNLOAD_RESPONSE, kTransferred)}, done, download},
      {"upload", "import", {frame(PACKET_UPLOAD_RESPONSE, kTransferred)}, done, upload},
      {"createDir",
       "import",
       {frame(PACKET_CREATE_DIR_RESPONSE, R"({"success":true,"request":{"path":"/d"}})")},
       done,
       createDir},
      {"getExternalHandleResult",
       "import",
       {frame(PACKET_EXPORT_RESULT_RESPONSE, kHandlerResults)},
       done,
       getHandlers},
      {"a listing of two pages", "import", {page1, page2}, done, listTwoPages},
      {"a refusal", "import", {frame(PACKET_SET_PROGRESS_RESPONSE, kRefusal)}, done, beRefused},
      {"an answer that breaks its rule",
       "import",
       {frame(PACKET_LANGUAGE_RESPONSE, kSuccess)},
       done,
       beMisanswered},
      {"an answer to another request", "import", {progressed}, done, beMisanswered},
      {"an answer that is no JSON",
       "import",
       {frame(PACKET_LANGUAGE_RESPONSE, "{\"success\":")},
       done,
       beMisanswered},
      {"the rule book", "import", {}, done, judgePackets},
  };
}
// clang-format on

}  // namespace

const std::vector<Scenario> &scenarios() {
  static const std::vector<Scenario> all = makeScenarios();
  return all;
}

}  // namespace arvl_test
