// Unusual command lines, as getopt and strtol interpret them.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/framework_end.h"
#include "support/log_capture.h"
#include "zarn/arvlapp/agent.h"

namespace {

using namespace arvl_test;
using ZARN::ARVLAPP::Agent;

// "%" stands for the descriptor.
std::vector<std::string> wordsWithFd(std::vector<std::string> words, int fd) {
  for (std::string &word : words) {
    const std::size_t at = word.find('%');
    if (at != std::string::npos) {
      word.replace(at, 1, std::to_string(fd));
    }
  }
  return words;
}

bool runInit(Agent &agent, std::vector<std::string> words) {
  std::vector<char *> argv;
  for (std::string &word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);
  optind = 1;
  testing::internal::CaptureStderr();  // getopt reports unknown options
  const bool good = agent.init(static_cast<int>(words.size()), argv.data());
  testing::internal::GetCapturedStderr();
  return good;
}

TEST(AgentCommandLine, AcceptsEveryFormThatGetoptAndStrtolAccept) {
  const std::vector<std::vector<std::string>> lines = {
      {"export", "-f%", "-v2.3"},
      {"export", "-v", "2.3", "-f", "%"},
      {"export", "-f", " %", "-v", " 2.3"},
      {"export", "-f", "+%", "-v", "+2.+3"},
      {"export", "-f", "000%", "-v", "02.003"},
      {"export", "-v", "2. 3", "-f", "%"},
      {"export", "-xyf", "%", "-zv2.3"},
      {"export", "operand", "-f", "%", "another", "-v", "2.3", "last"},
      {"export", "-f", "12", "-f", "%", "-v", "9.9", "-v", "2.3"},
      {"export", "-f", "%", "-v", "4294967298.4294967299"},
      {"export", "-f", "%", "-v", "2.3", "-f"},
      {"export", "-f", "%", "-v", "2.3", "--", "-f", "x"},
  };
  for (const std::vector<std::string> &line : lines) {
    FrameworkEnd framework;
    LogCapture log;
    Agent agent;
    EXPECT_TRUE(runInit(agent, wordsWithFd(line, framework.pluginFd())))
        << testing::PrintToString(line);
    EXPECT_EQ(agent.getFrameworkMajorVersion(), 2);
    EXPECT_EQ(agent.getFrameworkMinorVersion(), 3);
    EXPECT_EQ(log.take(), LogLines{});
  }
}

struct BadLine {
  std::vector<std::string> words;
  std::string line;
};

TEST(AgentCommandLine, IsRefusedWithTheLogLineOfItsFirstFault) {
  const std::vector<BadLine> rows = {
      {{"export", "-v", "2.3", "-f"}, "invalid argument fd [-1]"},
      {{"export", "-f", "900", "-v"}, "invalid argument version [-1.-1]"},
      {{"export", "-f", "-v", "2.3"}, "invalid socket fd format [-v]"},
      {{"export", "-f", "12 3", "-v", "2.3"}, "invalid socket fd format [12 3]"},
      {{"export", "-f", "0x10", "-v", "2.3"}, "invalid socket fd format [0x10]"},
      {{"export", "-f", "1.5", "-v", "2.3"}, "invalid socket fd format [1.5]"},
      {{"export", "-f", "x%sx%n", "-v", "2"}, "invalid socket fd format [x%sx%n]"},
      {{"export", "-v", "2", "-f", "x"}, "invalid framework version format [2]"},
      {{"export", "-f", "x", "-v", "2"}, "invalid socket fd format [x]"},
      {{"export", "-f", "99999999999999999999", "-v", "2.3"}, "invalid argument fd [-1]"},
      {{"export", "-f", "-99999999999999999999", "-v", "2.3"}, "invalid argument fd [0]"},
      {{"export", "-f", "900", "-v", "2.3 "}, "invalid framework version format [2.3 ]"},
      {{"export", "-f", "900", "-v", "2 .3"}, "invalid framework version format [2 .3]"},
      {{"export", "-f", "900", "--version"}, "invalid framework version format [ersion]"},
      {{"export", "-f", "900", "-v", "v2.3"}, "invalid framework version format [v2.3]"},
      {{"export", "-f", "900", "-v", "2.2147483648"}, "invalid argument version [2.-2147483648]"},
      {{"export", "-f", "900", "-v", "99999999999999999999.0"}, "invalid argument version [-1.0]"},
      {{"export", "-f", "0", "-v", "2.-1"}, "invalid argument fd [0]"},
      {{"export", "--", "-f", "900", "-v", "2.3"}, "invalid argument fd [-1]"},
      {{"export", "-F", "900", "-v", "2.3"}, "invalid argument fd [-1]"},
  };
  for (const BadLine &row : rows) {
    LogCapture log;
    Agent agent;
    EXPECT_FALSE(runInit(agent, row.words)) << row.line;
    EXPECT_EQ(log.take(), (LogLines{"agent.cpp: " + row.line, "agent.cpp: invalid arg"}));
    EXPECT_EQ(agent.getFrameworkMajorVersion(), -1);
    EXPECT_EQ(log.take(), LogLines{"agent.cpp: Error: not initialized"});
  }
}

// The version keeps the values read before the fault: the comparison uses them unchanged.
TEST(AgentCommandLine, KeepsTheValuesReadBeforeTheFault) {
  Agent agent;
  EXPECT_FALSE(runInit(agent, {"export", "-v", "2.3", "-f", "x"}));
  EXPECT_TRUE(agent.isVerionNotLessThan(2, 3));
  EXPECT_FALSE(agent.isVerionNotLessThan(2, 4));
}

TEST(AgentCommandLine, MayNameAnySocketAndAnyPipe) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  {
    Agent agent;
    EXPECT_TRUE(runInit(agent, {"can_import", "-f", std::to_string(ends[1]), "-v", "2.3"}));
    agent.setSuccess();
  }
  const std::string expected = frame(6, "{\"success\":true}\n");
  std::string received(expected.size() + 1, '\0');
  const ssize_t size = read(ends[0], received.data(), received.size());
  EXPECT_EQ(received.substr(0, static_cast<std::size_t>(size)), expected);
  EXPECT_EQ(fcntl(ends[1], F_GETFD), -1) << "closed at the end";
  close(ends[0]);
}

}  // namespace
