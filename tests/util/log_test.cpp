// Every log line begins with the file and line of its statement.

#include <gtest/gtest.h>
#include <json/value.h>
#include <syslog.h>
#include <unistd.h>

#include <set>

#include "protocol/packet_table.h"
#include "support/log_capture.h"
#include "support/log_source.h"
#include "support/rule_case.h"
#include "zarn/arvlapp/agent.h"
#include "zarn/arvlapp/protocol_util.h"
#include "zarn/arvlapp/storage_usage.h"

// A program that is built with _FORTIFY_SOURCE calls this in place of syslog.
extern "C" void __syslog_chk(int priority, int flag, const char *format, ...);

namespace {

using namespace ZARN::ARVLAPP;
using namespace arvl_test;

// Expects each line to name its statement, and at least so many different statements.
void expectTrueLines(const std::vector<LogRecord> &records, std::size_t statements) {
  EXPECT_TRUE(nameTheirStatements(records));
  std::set<int> lines;
  for (const LogRecord &record : records) {
    lines.insert(record.line);
  }
  EXPECT_GE(lines.size(), statements);
}

TEST(LogLine, IsTakenFromABuildWithFortifySourceToo) {
  LogCapture capture;
  __syslog_chk(LOG_ERR, 1, "%s:%d %s", "some.cpp", 7, "text");
  EXPECT_EQ(capture.take(), LogLines{"some.cpp: text"});
}

TEST(LogLine, NamesItsStatementInTheRuleBook) {
  LogCapture capture;
  Util::packetString(static_cast<PACKET_TYPE>(27));
  const char *const payloads[] = {
      "null",
      "{}",
      R"({"success": 1})",
      R"({"success": true})",
      R"({"success": false})",
      R"({"success": false, "err_msg": {}})",
      R"({"success": false, "err_msg": {"section": 1}})",
      R"({"success": false, "err_msg": {"section": 1, "key": 2}})",
      R"({"success": true, "file_count": "", "dir_count": "", "size": "", "block_size": ""})",
      R"({"success": true, "app_data_version": 1})",
      R"({"success": true, "app_data_version": ""})",
      R"({"success": true, "export_result": {}})",
      R"({"success": true, "export_result": {"success": false, "app_data_version": 1}})",
      R"({"success": true, "export_result": {"success": true, "app_data_version": 1}})",
      R"({"success": true, "export_result": {"success": true, "app_data_version": "1.0"},
          "external_handler_result": []})",
      R"({"success": true, "export_result": {"success": true, "app_data_version": "1.0"},
          "external_handler_result": [5]})",
  };
  for (int type = PACKET_TYPE_NONE; type <= kPacketTypeCount; ++type) {
    for (const char *payload : payloads) {
      Util::isValidPacket(static_cast<PACKET_TYPE>(type), parseJson(payload));
    }
  }
  expectTrueLines(capture.takeRecords(), 30);
}

TEST(LogLine, NamesItsStatementInTheStorageAccounting) {
  LogCapture capture;
  StorageUsage usage;
  usage.addOne("/no such file");
  usage.addOne("/dev/null");
  usage.addDirRecursive("relative");
  usage.addDirRecursive("/no such file");
  expectTrueLines(capture.takeRecords(), 4);
}

TEST(LogLine, NamesItsStatementInTheAgent) {
  char program[] = "export";
  char foreign[] = "vacuum";
  char option[] = "-fx";
  char *onlyName[] = {program, nullptr};
  char *foreignName[] = {foreign, nullptr};
  char *badDescriptor[] = {program, option, nullptr};

  LogCapture capture;
  Agent().getFrameworkMajorVersion();
  Agent().init(0, nullptr);
  Agent().init(1, foreignName);
  Agent().init(1, onlyName);
  optind = 1;
  Agent().init(2, badDescriptor);
  expectTrueLines(capture.takeRecords(), 6);
}

TEST(LogLine, IsRejectedWhenItNamesAnotherPlace) {
  LogCapture capture;
  Util::packetString(PACKET_TYPE(-1));
  std::vector<LogRecord> records = capture.takeRecords();
  ASSERT_EQ(records.size(), 1u);
  ASSERT_TRUE(nameTheirStatements(records));

  std::vector<LogRecord> shifted = records;
  shifted[0].line += 1;
  EXPECT_FALSE(nameTheirStatements(shifted));

  std::vector<LogRecord> elsewhere = records;
  elsewhere[0].file = "agent.cpp";
  EXPECT_FALSE(nameTheirStatements(elsewhere));

  std::vector<LogRecord> beyond = records;
  beyond[0].line = 1000000;
  EXPECT_FALSE(nameTheirStatements(beyond));

  std::vector<LogRecord> bare = records;
  bare[0].format = "invalid packet type %d";
  EXPECT_FALSE(nameTheirStatements(bare));
}

}  // namespace
