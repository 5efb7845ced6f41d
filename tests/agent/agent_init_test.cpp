// Start-up from the command line, the version, the error state, and who owns the socket.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "support/framework_end.h"
#include "support/log_capture.h"
#include "zarn/arvlapp/agent.h"

namespace {

using namespace arvl_test;
using ZARN::ARVLAPP::Agent;

bool isOpen(int fd) {
  return fcntl(fd, F_GETFD) != -1;
}

TEST(PluginNames, AreTheExactTexts) {
  EXPECT_STREQ(Agent::PLUGIN_NAME_SUMMARY, "summary");
  EXPECT_STREQ(Agent::PLUGIN_NAME_ESTIMATE_EXPORTION, "estimate_exportion");
  EXPECT_STREQ(Agent::PLUGIN_NAME_CAN_EXPORT, "can_export");
  EXPECT_STREQ(Agent::PLUGIN_NAME_EXPORT, "export");
  EXPECT_STREQ(Agent::PLUGIN_NAME_CAN_IMPORT, "can_import");
  EXPECT_STREQ(Agent::PLUGIN_NAME_IMPORT, "import");
}

TEST(AgentInit, TakesEachStepByTheBaseNameOfTheProgram) {
  for (const char *program : {"summary", "/usr/lib/x/estimate_exportion", "./can_export",
                              "../a b/export", "//can_import", "/import"}) {
    FrameworkEnd framework;
    LogCapture log;
    Agent agent;
    CommandLine line = {program, "-f", std::to_string(framework.pluginFd()), "-v", "2.3"};
    EXPECT_TRUE(agent.init(line.argc(), line.argv())) << program;
    EXPECT_EQ(log.take(), LogLines{}) << program;
  }
}

TEST(AgentInit, RefusesOtherNamesAndShowsTheWholePath) {
  for (const std::string program :
       {"/usr/lib/Export", "exporter", "/x/export ", "", "/x/export/", "summary2", "none"}) {
    LogCapture log;
    Agent agent;
    CommandLine line = {program, "-f", "3", "-v", "2.3"};
    EXPECT_FALSE(agent.init(line.argc(), line.argv()));
    EXPECT_EQ(log.take(),
              (LogLines{"agent.cpp: invalid plugin [" + program + "]", "agent.cpp: invalid arg"}));
  }
}

TEST(AgentInit, RefusesAnInvalidCommandLine) {
  LogCapture log;
  Agent agent;
  CommandLine line = {"export"};
  EXPECT_FALSE(agent.init(0, line.argv()));
  EXPECT_EQ(log.take(), (LogLines{"agent.cpp: bad param 0", "agent.cpp: invalid arg"}));
  EXPECT_FALSE(agent.init(-3, line.argv()));
  EXPECT_EQ(log.take(), (LogLines{"agent.cpp: bad param -3", "agent.cpp: invalid arg"}));
  char *nameless[] = {nullptr};
  EXPECT_FALSE(agent.init(1, nameless));
  EXPECT_EQ(log.take(), (LogLines{"agent.cpp: bad param 1", "agent.cpp: invalid arg"}));
  EXPECT_FALSE(agent.init(1, nullptr));
  EXPECT_EQ(log.take(), (LogLines{"agent.cpp: bad param 1", "agent.cpp: invalid arg"}));
  FrameworkEnd framework;
  EXPECT_TRUE(openSession(agent, "export", framework)) << "nothing has been read before";
}

struct BadOptions {
  std::vector<std::string> words;
  std::string line;
};

TEST(AgentInit, RefusesOptionsThatAreMissingOrMalformed) {
  const std::vector<BadOptions> cases = {
      {{"-f", "12x", "-v", "2.3"}, "invalid socket fd format [12x]"},
      {{"-f", "x", "-v", "2.3"}, "invalid socket fd format [x]"},
      {{"-f", "7 ", "-v", "2.3"}, "invalid socket fd format [7 ]"},
      {{"-f", "0", "-v", "2.3"}, "invalid argument fd [0]"},
      {{"-f", "", "-v", "2.3"}, "invalid argument fd [0]"},
      {{"-f", "-1", "-v", "2.3"}, "invalid argument fd [-1]"},
      {{"-f", "-7", "-v", "2.3"}, "invalid argument fd [-7]"},
      {{"-f", "4294967296", "-v", "2.3"}, "invalid argument fd [0]"},
      {{"-f", "2147483648", "-v", "2.3"}, "invalid argument fd [-2147483648]"},
      {{"-v", "2.3"}, "invalid argument fd [-1]"},
      {{}, "invalid argument fd [-1]"},
      {{"-f", "900", "-v", "2"}, "invalid framework version format [2]"},
      {{"-f", "900", "-v", ""}, "invalid framework version format []"},
      {{"-f", "900", "-v", "2,3"}, "invalid framework version format [2,3]"},
      {{"-f", "900", "-v", "2.3b"}, "invalid framework version format [2.3b]"},
      {{"-f", "900", "-v", "2.3.1"}, "invalid framework version format [2.3.1]"},
      {{"-f", "900", "-v", "2.-1"}, "invalid argument version [2.-1]"},
      {{"-f", "900", "-v", "-1.2"}, "invalid argument version [-1.2]"},
      {{"-f", "900"}, "invalid argument version [-1.-1]"},
      {{"-f", "900", "-v", "2.3", "-v", "x"}, "invalid framework version format [x]"},
      {{"-f", "900", "-f", "0", "-v", "2.3"}, "invalid argument fd [0]"},
  };
  for (const BadOptions &row : cases) {
    std::vector<std::string> words = {"/plugin/export"};
    words.insert(words.end(), row.words.begin(), row.words.end());
    std::vector<char *> argv;
    for (std::string &word : words) {
      argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    optind = 1;
    LogCapture log;
    Agent agent;
    EXPECT_FALSE(agent.init(static_cast<int>(words.size()), argv.data())) << row.line;
    EXPECT_EQ(log.take(), (LogLines{"agent.cpp: " + row.line, "agent.cpp: invalid arg"}));
  }
}

TEST(AgentInit, AcceptsAVersionWithoutDigitsAroundItsFullStop) {
  for (const char *version : {"2.", ".3", "."}) {
    FrameworkEnd framework;
    Agent agent;
    EXPECT_TRUE(openSession(agent, "export", framework, version)) << version;
  }
}

TEST(AgentInit, TakesTheLastOfRepeatedOptionsAndIgnoresOthers) {
  FrameworkEnd framework;
  Agent agent;
  CommandLine line = {
      "export", "more", "-f", "900", "-x", "-v", "1.0", "-f", std::to_string(framework.pluginFd()),
      "-v",     "3.4"};
  testing::internal::CaptureStderr();
  EXPECT_TRUE(agent.init(line.argc(), line.argv()));
  EXPECT_NE(testing::internal::GetCapturedStderr().find("invalid option -- 'x'"),
            std::string::npos);
  EXPECT_EQ(agent.getFrameworkMajorVersion(), 3);
  EXPECT_EQ(agent.getFrameworkMinorVersion(), 4);
}

TEST(AgentInit, TruncatesADescriptorBeyondIntAsAConversionDoes) {
  FrameworkEnd framework;
  const std::string number = std::to_string(4294967296LL + framework.pluginFd());
  Agent agent;
  CommandLine line = {"import", "-f", number, "-v", "2.3"};
  EXPECT_TRUE(agent.init(line.argc(), line.argv()));
}

TEST(AgentInit, FailsTheSecondTimeEvenAfterAFailure) {
  FrameworkEnd framework;
  Agent agent;
  ASSERT_TRUE(openSession(agent, "export", framework));
  LogCapture log;
  EXPECT_FALSE(openSession(agent, "export", framework));
  EXPECT_EQ(log.take(), (LogLines{"agent.cpp: Error: reinit", "agent.cpp: invalid arg"}));
  EXPECT_EQ(agent.getFrameworkMajorVersion(), 2);

  Agent failed;
  CommandLine bad = {"export", "-f", "x"};
  EXPECT_FALSE(failed.init(bad.argc(), bad.argv()));
  log.take();
  CommandLine good = {"export", "-f", "900", "-v", "2.3"};
  EXPECT_FALSE(failed.init(good.argc(), good.argv()));
  EXPECT_EQ(log.take(), (LogLines{"agent.cpp: Error: reinit", "agent.cpp: invalid arg"}));

  Agent unknown;
  CommandLine wrong = {"/"};
  EXPECT_FALSE(unknown.init(wrong.argc(), wrong.argv()));
  log.take();
  EXPECT_FALSE(unknown.init(wrong.argc(), wrong.argv()));
  EXPECT_EQ(log.take(), (LogLines{"agent.cpp: invalid plugin [/]", "agent.cpp: invalid arg"}));
}

TEST(AgentInit, FindsNoOptionsAfterGetoptHasReadThem) {
  FrameworkEnd framework;
  CommandLine line = {"export", "-f", std::to_string(framework.pluginFd()), "-v", "2.3"};
  Agent first;
  ASSERT_TRUE(first.init(line.argc(), line.argv()));
  LogCapture log;
  Agent second;
  EXPECT_FALSE(second.init(line.argc(), line.argv()));
  EXPECT_EQ(log.take(),
            (LogLines{"agent.cpp: invalid argument fd [-1]", "agent.cpp: invalid arg"}));
}

TEST(AgentInit, DoesNotPassTheSocketToProgramsOfThePlugin) {
  FrameworkEnd framework;
  ASSERT_EQ(fcntl(framework.pluginFd(), F_SETFD, 0), 0);  // as a plug-in gets it, to survive exec
  Agent agent;
  ASSERT_TRUE(openSession(agent, "export", framework));
  EXPECT_EQ(fcntl(framework.pluginFd(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

void expectRefusalAsNotOpen(int fd) {
  const int before = countOpenDescriptors();
  LogCapture log;
  {
    Agent agent;
    CommandLine line = {"export", "-f", std::to_string(fd), "-v", "2.3"};
    EXPECT_FALSE(agent.init(line.argc(), line.argv())) << fd;
  }
  EXPECT_EQ(log.take(), (LogLines{"agent.cpp: make socket nonblocking failed",
                                  "agent.cpp: connection init failed"}));
  EXPECT_EQ(countOpenDescriptors(), before);
}

TEST(AgentInit, RefusesADescriptorThatIsNotOpen) {
  expectRefusalAsNotOpen(900);
}

// The next numbers that are free are those that the event base gets for its own descriptors.
TEST(AgentInit, NeverTakesADescriptorOfItsOwnForTheSocket) {
  const int next = dup(STDERR_FILENO);
  close(next);
  for (int fd = next; fd < next + 8; ++fd) {
    if (!isOpen(fd)) {
      expectRefusalAsNotOpen(fd);
    }
  }
}

// Descriptor 1 is the least that is accepted: a plug-in may have the socket for its stdout.
TEST(AgentInit, AcceptsDescriptor1) {
  FrameworkEnd framework;
  const int output = dup(STDOUT_FILENO);
  std::fflush(stdout);
  dup2(framework.pluginFd(), STDOUT_FILENO);
  close(framework.pluginFd());
  bool isInitialized = false;
  {
    Agent agent;
    CommandLine line = {"import", "-f", "1", "-v", "2.3"};
    isInitialized = agent.init(line.argc(), line.argv());
  }
  dup2(output, STDOUT_FILENO);
  close(output);
  EXPECT_TRUE(isInitialized);
  EXPECT_EQ(framework.readAll(), frame(15, "{\"success\":false}\n"));
}

TEST(AgentInit, RefusesADescriptorThatCannotBeWaitedFor) {
  const int fd = open("/proc/self/exe", O_RDONLY);
  LogCapture log;
  testing::internal::CaptureStderr();
  {
    Agent agent;
    CommandLine line = {"export", "-f", std::to_string(fd), "-v", "2.3"};
    EXPECT_FALSE(agent.init(line.argc(), line.argv()));
    EXPECT_EQ(agent.getErrno(), 0);
    EXPECT_TRUE(isOpen(fd));
  }
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(log.take(), (LogLines{"agent.cpp: bufferEvent enable failed",
                                  "agent.cpp: connection init failed"}));
  EXPECT_FALSE(isOpen(fd)) << "the session had come to own it";
}

TEST(AgentSocket, IsLeftAloneWhenTheCommandLineIsRefused) {
  FrameworkEnd framework;
  {
    Agent agent;
    CommandLine line = {"export", "-f", std::to_string(framework.pluginFd()), "-v", "2"};
    EXPECT_FALSE(agent.init(line.argc(), line.argv()));
  }
  EXPECT_TRUE(isOpen(framework.pluginFd()));
  close(framework.pluginFd());
}

TEST(AgentSocket, IsMadeNonBlockingAndClosedAtTheEnd) {
  FrameworkEnd framework;
  const int before = countOpenDescriptors();
  {
    Agent agent;
    ASSERT_TRUE(openSession(agent, "import", framework));
    EXPECT_NE(fcntl(framework.pluginFd(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_TRUE(isOpen(framework.pluginFd()));
  }
  EXPECT_FALSE(isOpen(framework.pluginFd()));
  EXPECT_EQ(countOpenDescriptors(), before - 1) << "the socket, and nothing else of the session's";
}

TEST(AgentVersion, IsMinusOneWithALineBeforeInit) {
  LogCapture log;
  Agent agent;
  EXPECT_EQ(agent.getFrameworkMajorVersion(), -1);
  EXPECT_EQ(agent.getFrameworkMinorVersion(), -1);
  EXPECT_EQ(log.take(),
            (LogLines{"agent.cpp: Error: not initialized", "agent.cpp: Error: not initialized"}));
  EXPECT_FALSE(agent.isVerionNotLessThan(0, 0));
  EXPECT_TRUE(agent.isVerionNotLessThan(-1, -1));
  EXPECT_EQ(log.take(), LogLines{});
}

TEST(AgentVersion, IsMinusOneWithoutALineOnceTheFrameworkIsGone) {
  FrameworkEnd framework;
  Agent agent;
  ASSERT_TRUE(openSession(agent, "import", framework));
  EXPECT_EQ(agent.getFrameworkMajorVersion(), 2);
  EXPECT_EQ(agent.getFrameworkMinorVersion(), 3);
  framework.close();
  LogCapture log;
  EXPECT_FALSE(agent.setProgress("x", 1));
  log.take();
  EXPECT_EQ(agent.getFrameworkMajorVersion(), -1);
  EXPECT_EQ(agent.getFrameworkMinorVersion(), -1);
  EXPECT_TRUE(agent.isVerionNotLessThan(2, 3)) << "compares the numbers as they are";
  EXPECT_EQ(log.take(), LogLines{});
}

TEST(AgentVersion, ComparesMajorBeforeMinor) {
  FrameworkEnd framework;
  Agent agent;
  ASSERT_TRUE(openSession(agent, "import", framework, "2.3"));
  EXPECT_TRUE(agent.isVerionNotLessThan(2, 3));
  EXPECT_TRUE(agent.isVerionNotLessThan(2, 2));
  EXPECT_TRUE(agent.isVerionNotLessThan(1, 9));
  EXPECT_TRUE(agent.isVerionNotLessThan(0, 0));
  EXPECT_FALSE(agent.isVerionNotLessThan(2, 4));
  EXPECT_FALSE(agent.isVerionNotLessThan(3, 0));
}

TEST(AgentErrorState, IsEmptyAtFirst) {
  const Agent agent;
  EXPECT_EQ(agent.getErrno(), 0);
  EXPECT_EQ(agent.getErrorString(), "");
}

}  // namespace
