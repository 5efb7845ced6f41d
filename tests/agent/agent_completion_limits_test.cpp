// Completions with rare values: impossible counters, and texts of any bytes.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <functional>
#include <string>

#include "support/framework_end.h"
#include "support/log_capture.h"
#include "zarn/arvlapp/agent.h"

namespace {

// Sizes and block counts of files that are not there, for a path like "/impossible/-5/8".
constexpr const char kImpossible[] = "/impossible/%lld/%lld";

}  // namespace

// Replaces the C library's function: a file system that reports negative numbers.
extern "C" ZARN_EXPORT int lstat64(const char *path, struct stat64 *status) {
  long long size = 0;
  long long blocks = 0;
  if (std::sscanf(path, kImpossible, &size, &blocks) == 2) {
    std::memset(status, 0, sizeof *status);
    status->st_mode = S_IFREG;
    status->st_size = size;
    status->st_blocks = blocks;
    return 0;
  }
  using Lstat = int(const char *, struct stat64 *);
  return reinterpret_cast<Lstat *>(dlsym(RTLD_NEXT, "lstat64"))(path, status);
}

namespace {

using namespace arvl_test;
using namespace ZARN::ARVLAPP;

const std::string kFailure = "{\"success\":false}\n";

struct Ending {
  std::string wire;
  LogLines log;
};

Ending endOf(const std::string &step, const std::function<void(Agent &)> &record) {
  Ending ending;
  FrameworkEnd framework;
  framework.play([&] { ending.wire = framework.readAll(); });
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

Ending endOfEstimate(const std::string &path) {
  return endOf("estimate_exportion", [&](Agent &agent) {
    StorageUsage usage;
    EXPECT_TRUE(usage.addOne(path));
    agent.setStorageUsage(usage);
    agent.setSuccess();
  });
}

TEST(EstimateOfImpossibleCounters, FailsAndLogsThem) {
  const Ending size = endOfEstimate("/impossible/-5/8");
  EXPECT_EQ(size.wire, frame(2, kFailure));
  EXPECT_EQ(
      size.log,
      LogLines{"agent.cpp: invalid storage usage.cfile = 1, cDir = 0, size = -5, blocks = 8"});

  const Ending blocks = endOfEstimate("/impossible/6000000000/-1");
  EXPECT_EQ(blocks.wire, frame(2, kFailure));
  EXPECT_EQ(
      blocks.log,
      LogLines{
          "agent.cpp: invalid storage usage.cfile = 1, cDir = 0, size = 6000000000, blocks = -1"});
}

TEST(EstimateOfTheLargestCounters, IsExact) {
  const Ending ending = endOfEstimate("/impossible/9223372036854775807/9223372036854775807");
  EXPECT_EQ(ending.wire,
            frame(2,
                  "{\"block_size\":9223372036854775807,\"dir_count\":0,\"file_count\":1,"
                  "\"size\":9223372036854775807,\"success\":true}\n"));
  EXPECT_EQ(ending.log, LogLines{});
}

// A text goes through the writer's escapes: what is no ASCII as UTF-16, what is no UTF-8 as U+FFFD.
TEST(TextsOfAnyBytes, ArriveAsTheWriterEscapesThem) {
  struct Row {
    std::string text;
    std::string onTheWire;
  };
  const Row rows[] = {
      {"100% %s %n %", "100% %s %n %"},
      {"\" \\ /", "\\\" \\\\ /"},
      {"\b\f\n\r\t", "\\b\\f\\n\\r\\t"},
      {std::string("\x00\x01\x1F\x7F", 4), "\\u0000\\u0001\\u001f\x7F"},
      {"\xC3\xBC \xE2\x82\xAC", "\\u00fc \\u20ac"},
      {"\xF0\x9F\x93\x9D", "\\ud83d\\udcdd"},
      {"\xFF", "\\ufffd"},
  };
  for (const Row &row : rows) {
    const Ending ending = endOf("import", [&](Agent &agent) { agent.setErrorMsg(row.text, "k"); });
    EXPECT_EQ(ending.wire, frame(15, "{\"err_msg\":{\"key\":\"k\",\"section\":\"" + row.onTheWire +
                                         "\"},\"success\":false}\n"));
    EXPECT_EQ(ending.log, LogLines{});
  }
}

// A text that begins with NUL is not empty, though it prints as nothing.
TEST(TextsOfAnyBytes, AreEmptyOnlyIfTheirLengthIsZero) {
  const std::string nul(1, '\0');
  const Ending ending = endOf("summary", [&](Agent &agent) {
    SummaryInfo info;
    info.setSummaryInfo(nul, "100%s", "%n", "");
    agent.setSummaryInfo(info);
    agent.setSuccess();
  });
  EXPECT_EQ(ending.wire, frame(24, kFailure));
  EXPECT_EQ(ending.log, LogLines{"agent.cpp: invalid summary.backup_short = [], backup_long = "
                                 "[100%s], restore_short = [%n], restore_long = []"});

  const Ending good = endOf("summary", [&](Agent &agent) {
    SummaryInfo info;
    info.setSummaryInfo(nul, nul, nul, nul);
    agent.setSummaryInfo(info);
    agent.setSuccess();
  });
  EXPECT_EQ(good.wire, frame(24, R"({"backup_long":"\u0000","backup_short":"\u0000",)"
                                 R"("restore_long":"\u0000","restore_short":"\u0000",)"
                                 R"("success":true})"
                                 "\n"));
  EXPECT_EQ(good.log, LogLines{});
}

}  // namespace
