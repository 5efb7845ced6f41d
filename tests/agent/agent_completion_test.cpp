// The completion, the last packet of every run, byte for byte.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <functional>
#include <string>

#include "protocol/packet_table.h"
#include "support/framework_end.h"
#include "support/log_capture.h"
#include "zarn/arvlapp/agent.h"

namespace {

using namespace arvl_test;
using namespace ZARN::ARVLAPP;

struct Ending {
  std::string wire;  // all that the framework received
  LogLines log;
};

Ending endOf(const std::string &step, const std::function<void(Agent &)> &record) {
  Ending ending;
  FrameworkEnd framework;
  framework.play([&] { ending.wire = framework.readFrame() + framework.readAll(); });
  LogCapture log;
  {
    Agent agent;
    EXPECT_TRUE(openSession(agent, step, framework));
    record(agent);
  }
  framework.finish();
  ending.log = log.take();
  return ending;
}

void nothing(Agent &) {}

void expectEnding(const std::string &step, unsigned type, const std::string &payload,
                  const LogLines &log, const std::function<void(Agent &)> &record) {
  const Ending ending = endOf(step, record);
  EXPECT_EQ(ending.wire, frame(type, payload)) << step;
  EXPECT_EQ(ending.log, log) << step;
}

const std::string kSuccess = "{\"success\":true}\n";
const std::string kFailure = "{\"success\":false}\n";

TEST(Completion, OfAStepWithoutAProductContainsOnlyTheOutcome) {
  const auto succeed = [](Agent &agent) { agent.setSuccess(); };
  expectEnding("can_export", 1, kSuccess, {}, succeed);
  expectEnding("can_import", 6, kSuccess, {}, succeed);
  expectEnding("import", 15, kSuccess, {}, succeed);
}

TEST(Completion, IsAFailureWithoutAReasonByDefault) {
  expectEnding("can_export", 1, kFailure, {}, nothing);
  expectEnding("can_import", 6, kFailure, {}, nothing);
  expectEnding("import", 15, kFailure, {}, nothing);
  expectEnding("estimate_exportion", 2, kFailure, {}, nothing);
  expectEnding("export", 5, kFailure, {"agent.cpp: invalid app data version [-1.-1]"}, nothing);
  expectEnding("summary", 24, kFailure,
               {"agent.cpp: invalid summary.backup_short = [], backup_long = [], restore_short = "
                "[], restore_long = []"},
               nothing);
}

TEST(Completion, OfAFailureContainsTheReasonIfSectionAndKeyAreSet) {
  const std::string reason = R"({"err_msg":{"key":"k","section":"s"},"success":false})"
                             "\n";
  for (const char *step : {"can_export", "estimate_exportion", "can_import", "import"}) {
    expectEnding(step, findCompletion(step)->type, reason, {},
                 [](Agent &agent) { agent.setErrorMsg("s", "k"); });
  }
  expectEnding("import", 15, kFailure, {}, [](Agent &agent) { agent.setErrorMsg("", "k"); });
  expectEnding("import", 15, kFailure, {}, [](Agent &agent) { agent.setErrorMsg("s", ""); });
  expectEnding("import", 15, reason, {}, [](Agent &agent) {
    agent.setErrorMsg("an earlier one", "x");
    agent.setErrorMsg("s", "k");
  });
}

TEST(Completion, OfASuccessOmitsARecordedReason) {
  expectEnding("import", 15, kSuccess, {}, [](Agent &agent) {
    agent.setSuccess();
    agent.setErrorMsg("section", "key");
  });
  expectEnding("import", 15, kSuccess, {}, [](Agent &agent) {
    agent.setErrorMsg("section", "key");
    agent.setSuccess();
  });
}

TEST(SummaryCompletion, CarriesTheFourTexts) {
  expectEnding(
      "summary", 24,
      R"({"backup_long":"b l","backup_short":"bs","restore_long":"rl","restore_short":"rs","success":true})"
      "\n",
      {}, [](Agent &agent) {
        SummaryInfo info;
        info.setSummaryInfo("bs", "b l", "rs", "rl");
        agent.setSummaryInfo(info);
        info.setSummaryInfo("", "", "", "");  // the agent has its own copy
        agent.setSuccess();
      });
}

TEST(SummaryCompletion, IsAFailureWhenAnyTextIsEmpty) {
  const std::string texts[4] = {"bs", "bl", "rs", "rl"};
  for (int empty = 0; empty < 4; ++empty) {
    std::string t[4];
    for (int i = 0; i < 4; ++i) {
      t[i] = i == empty ? "" : texts[i];
    }
    expectEnding("summary", 24,
                 R"({"err_msg":{"key":"k","section":"s"},"success":false})"
                 "\n",
                 {"agent.cpp: invalid summary.backup_short = [" + t[0] + "], backup_long = [" +
                  t[1] + "], restore_short = [" + t[2] + "], restore_long = [" + t[3] + "]"},
                 [&](Agent &agent) {
                   SummaryInfo info;
                   info.setSummaryInfo(t[0], t[1], t[2], t[3]);
                   agent.setSummaryInfo(info);
                   agent.setErrorMsg("s", "k");
                   agent.setSuccess();
                 });
  }
}

TEST(SummaryCompletion, TakesTextsOfAnyBytes) {
  const Ending ending = endOf("summary", [](Agent &agent) {
    SummaryInfo info;
    info.setSummaryInfo("100 % %s %n %d", "tab\t line\n quote\" \\ \x01",
                        "\xF0\x9F\x93\x9D \xC3\xBC", "\xff\xfe");
    agent.setSummaryInfo(info);
    agent.setSuccess();
  });
  EXPECT_NE(ending.wire.find(R"("backup_short":"100 % %s %n %d")"), std::string::npos);
  EXPECT_NE(ending.wire.find(R"("backup_long":"tab\t line\n quote\" \\ \u0001")"),
            std::string::npos);
  EXPECT_EQ(ending.log, LogLines{});
  EXPECT_EQ(ending.wire.substr(ending.wire.size() - 16), R"("success":true})"
                                                         "\n");
}

TEST(EstimateCompletion, OfAnUntouchedRecordIsFourZeros) {
  expectEnding("estimate_exportion", 2,
               R"({"block_size":0,"dir_count":0,"file_count":0,"size":0,"success":true})"
               "\n",
               {}, [](Agent &agent) { agent.setSuccess(); });
}

TEST(EstimateCompletion, CarriesCountersOf64Bits) {
  char name[] = "/tmp/arvl-sparse-XXXXXX";
  const int fd = mkstemp(name);
  ASSERT_EQ(ftruncate(fd, 3000000000), 0);
  struct stat status;
  ASSERT_EQ(fstat(fd, &status), 0);
  close(fd);
  expectEnding("estimate_exportion", 2,
               "{\"block_size\":" + std::to_string(2 * status.st_blocks) +
                   R"(,"dir_count":0,"file_count":2,"size":6000000000,"success":true})"
                   "\n",
               {}, [&](Agent &agent) {
                 StorageUsage usage;
                 EXPECT_TRUE(usage.addOne(name));
                 EXPECT_TRUE(usage.addOne(name));
                 agent.setStorageUsage(usage);
                 EXPECT_TRUE(usage.addOne(name));  // the agent has its own copy
                 agent.setSuccess();
               });
  unlink(name);
}

TEST(ExportCompletion, CarriesTheVersionOfTheData) {
  const auto withVersion = [](int major, int minor) {
    return [=](Agent &agent) {
      agent.setAppDataVersion(9, 9);
      agent.setAppDataVersion(major, minor);
      agent.setSuccess();
    };
  };
  expectEnding("export", 5, "{\"app_data_version\":\"1.0\",\"success\":true}\n", {},
               withVersion(1, 0));
  expectEnding("export", 5, "{\"app_data_version\":\"3.12\",\"success\":true}\n", {},
               withVersion(3, 12));
  expectEnding("export", 5, "{\"app_data_version\":\"2147483647.2147483647\",\"success\":true}\n",
               {}, withVersion(INT_MAX, INT_MAX));
  expectEnding("export", 5, kFailure, {"agent.cpp: invalid app data version [-1.0]"},
               withVersion(-1, 0));
  expectEnding("export", 5, kFailure, {"agent.cpp: invalid app data version [0.-1]"},
               withVersion(0, -1));
  expectEnding("export", 5, kFailure, {"agent.cpp: invalid app data version [-1.-1]"},
               [](Agent &agent) { agent.setSuccess(); });
}

TEST(Completion, ContainsProductsRecordedBeforeInit) {
  FrameworkEnd framework;
  std::string wire;
  framework.play([&] { wire = framework.readFrame(); });
  {
    Agent agent;
    agent.setAppDataVersion(4, 5);
    agent.setSuccess();           // too early: ignored
    agent.setErrorMsg("s", "k");  // likewise
    ASSERT_TRUE(openSession(agent, "export", framework));
  }
  framework.finish();
  EXPECT_EQ(wire, frame(5, kFailure));
}

TEST(Completion, IsNotSentWithoutASession) {
  LogCapture log;
  {
    Agent agent;
    agent.setSuccess();
    agent.setErrorMsg("s", "k");
  }
  EXPECT_EQ(log.take(), LogLines{});
}

TEST(Completion, IsNotSentAfterCancellation) {
  FrameworkEnd framework;
  shutdown(framework.fd(), SHUT_WR);
  LogCapture log;
  {
    Agent agent;
    ASSERT_TRUE(openSession(agent, "import", framework));
    EXPECT_FALSE(agent.setProgress("", 0));  // meets the close
    EXPECT_EQ(log.take(), (LogLines{"agent.cpp: User canceled, skip recvPacket",
                                    "agent.cpp: failed to parse setProgress output"}));
    EXPECT_EQ(agent.getErrno(), 1);
    agent.setSuccess();
    agent.setErrorMsg("s", "k");
  }
  EXPECT_EQ(framework.readAll(),
            frame(25, "{\"progress_percentage\":0,\"progress_stage\":\"\"}\n"));
  EXPECT_EQ(log.take(), LogLines{});
}

// {"err_msg":{"key":"k...","section":"s"},"success":false} and a line feed
constexpr std::size_t kLargestPayload = 0x2000000;
constexpr std::size_t kAroundKey = 53;

TEST(Completion, IsSentWithTheLargestPayloadAndRefusedWithOneByteMore) {
  const std::string key(kLargestPayload - kAroundKey, 'k');
  const std::string payload =
      "{\"err_msg\":{\"key\":\"" + key + "\",\"section\":\"s\"},\"success\":false}\n";
  ASSERT_EQ(payload.size(), kLargestPayload);

  Ending ending;
  FrameworkEnd framework;
  framework.play([&] { ending.wire = framework.readFrame(); });
  LogCapture log;
  {
    Agent agent;
    ASSERT_TRUE(openSession(agent, "import", framework));
    agent.setErrorMsg("s", key);
  }
  framework.finish();
  EXPECT_EQ(log.take(), LogLines{});
  EXPECT_TRUE(ending.wire == frame(15, payload));

  const Ending refused = endOf("import", [&](Agent &agent) { agent.setErrorMsg("s", key + "k"); });
  EXPECT_EQ(refused.wire, "");
  EXPECT_EQ(refused.log, (LogLines{"agent.cpp: invalid packet length 33554433",
                                   "agent.cpp: send PACKET_IMPORT_COMPLETE packet failed"}));
}

TEST(Completion, ThatIsTooLongIsLoggedWithItsStep) {
  const std::string key(kLargestPayload, 'k');
  // The log line has the enumerator, which is not always the printable name of the packet table.
  const std::pair<const char *, const char *> steps[] = {
      {"summary", "PACKET_SUMMARY_RESULT"},
      {"estimate_exportion", "PACKET_ESTIMATE_EXPORTION_RESULT"},
      {"can_export", "PACKET_CAN_EXPORT_RESULT"},
      {"export", "PACKET_EXPORT_COMPLETE"},
      {"can_import", "PACKET_CAN_IMPORT_RESULT"},
      {"import", "PACKET_IMPORT_COMPLETE"},
  };
  for (const auto &step : steps) {
    const Ending ending = endOf(step.first, [&](Agent &agent) { agent.setErrorMsg("s", key); });
    EXPECT_EQ(ending.wire, "");
    EXPECT_EQ(ending.log.back(), "agent.cpp: send " + std::string(step.second) + " packet failed");
  }
}

// A stray packet stops the event loop, and still the completion goes out whole.
TEST(Completion, IsWrittenCompletelyWhilePacketsArrive) {
  const std::string key(3000000, 'k');
  FrameworkEnd framework;
  const int small = 4096;
  setsockopt(framework.pluginFd(), SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
  std::string wire;
  framework.play([&] {
    for (int i = 0; i < 3;
         ++i) {  // the first is stored, the second too many, the third is new again
      framework.write(frame(26, kSuccess));
      framework.waitUntilRead();
      wire += framework.readBytes(10);
    }
    framework.write("garbage beyond any packet");
    framework.waitUntilRead();
    wire += framework.readAll();
  });
  LogCapture log;
  {
    Agent agent;
    ASSERT_TRUE(openSession(agent, "import", framework));
    agent.setErrorMsg("s", key);
  }
  framework.finish();
  EXPECT_TRUE(wire == frame(15, "{\"err_msg\":{\"key\":\"" + key +
                                    "\",\"section\":\"s\"},\"success\":false}\n"));
  const LogLines lines = log.take();
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[0], "agent.cpp: appendPacket twice before consuming");
  EXPECT_EQ(lines[1], "agent.cpp: append packet failed, skip it");
}

TEST(Completion, EndsWhenTheFrameworkClosesDuringIt) {
  const std::string key(3000000, 'k');
  FrameworkEnd framework;
  framework.play([&] {
    framework.readBytes(100000);
    framework.close();
  });
  LogCapture log;
  {
    Agent agent;
    ASSERT_TRUE(openSession(agent, "import", framework));
    agent.setErrorMsg("s", key);
  }
  framework.finish();
  for (const std::string &line : log.take()) {
    EXPECT_TRUE(line == "agent.cpp: Error: get bufferev error 33" ||
                line == "agent.cpp: Error: get bufferev error 34")
        << line;
  }
}

}  // namespace
