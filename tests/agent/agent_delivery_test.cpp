// Completions to a framework that reads slowly, sends packets at the same time, or closes. The framework
// gets the whole completion, and the plug-in survives with its signals unchanged.

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include "support/framework_end.h"
#include "support/log_capture.h"
#include "support/signal_state.h"
#include "zarn/arvlapp/agent.h"

namespace {

using namespace arvl_test;
using ZARN::ARVLAPP::Agent;

const std::string kSuccess = "{\"success\":true}\n";
const std::string kAnswer = frame(26, kSuccess);
const std::string kOverLong("\xDC\x55\x00\x1A\x02\x00\x00\x01", 8);
const std::string kMegabytesToCome("\xDC\x55\x00\x1A\x01\x00\x00\x00", 8);

const std::string kNoPacket = "agent.cpp: protocol error: packet checkCode is not match";
const std::string kTooLong = "agent.cpp: invalid packet length 33554433";
const std::string kTwice = "agent.cpp: appendPacket twice before consuming";
const std::string kNotJson = "agent.cpp: Failed to parse upload request payload";
const std::string kNotObject = "agent.cpp: payload is invalid (not a json object)";
const std::string kSkip = "agent.cpp: append packet failed, skip it";

std::string completionWithKey(const std::string &key) {
  return frame(15, "{\"err_msg\":{\"key\":\"" + key + "\",\"section\":\"s\"},\"success\":false}\n");
}

// The sockets hold a few kilobytes, so that the completion of a session cannot be written at once.
void makeNarrow(const FrameworkEnd &framework) {
  const int bytes = 4096;
  ASSERT_EQ(setsockopt(framework.pluginFd(), SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes), 0);
}

// Reads in large pieces until the plug-in closes.
std::string readRest(FrameworkEnd &framework) {
  constexpr std::size_t kMoreThanAnyCompletionHere = 2000000;
  return framework.readBytes(kMoreThanAnyCompletionHere);
}

// Runs a session whose completion is large, and returns what it logged.
LogLines completeLargely(const FrameworkEnd &framework, const std::string &key) {
  LogCapture log;
  {
    Agent agent;
    EXPECT_TRUE(openSession(agent, "import", framework));
    agent.setErrorMsg("s", key);
  }
  return log.take();
}

TEST(CompletionDelivery, ToASlowReaderIsComplete) {
  const std::string key(300000, 'k');
  FrameworkEnd framework;
  makeNarrow(framework);
  std::string received;
  framework.play([&] {
    for (int i = 0; i < 20000; ++i) {
      received += framework.readBytes(1);
    }
    received += readRest(framework);
  });
  EXPECT_EQ(completeLargely(framework, key), LogLines{});
  framework.finish();
  EXPECT_TRUE(received == completionWithKey(key));
}

TEST(CompletionDelivery, StopsWhenTheFrameworkHalfCloses) {
  FrameworkEnd framework;
  shutdown(framework.fd(), SHUT_RD);
  const LogLines lines = completeLargely(framework, "k");
  for (const std::string &line : lines) {
    EXPECT_EQ(line, "agent.cpp: Error: get bufferev error 34");
  }
}

// ---- Unrequested packets.

struct Stray {
  std::string name;
  std::vector<std::string> writes;  // each is read before the next is written
  LogLines lines;
};

std::ostream &operator<<(std::ostream &out, const Stray &stray) {
  return out << stray.name;
}

class StrayPackets : public testing::TestWithParam<Stray> {};

TEST_P(StrayPackets, DoNotTruncateTheCompletion) {
  const std::string key(1000000, 'k');
  FrameworkEnd framework;
  makeNarrow(framework);
  std::string received;
  framework.play([&] {
    received = framework.readBytes(1);  // the completion is on its way
    for (const std::string &bytes : GetParam().writes) {
      framework.write(bytes);
      framework.waitUntilRead();
    }
    received += readRest(framework);
  });
  EXPECT_EQ(completeLargely(framework, key), GetParam().lines);
  framework.finish();
  EXPECT_TRUE(received == completionWithKey(key));
}

TEST_P(StrayPackets, DoNotTruncateTheCompletionIfTheyArriveBeforeIt) {
  const std::string key(1000000, 'k');
  FrameworkEnd framework;
  makeNarrow(framework);
  std::string bytes;
  for (const std::string &part : GetParam().writes) {
    bytes += part;
  }
  framework.write(bytes);
  std::string received;
  framework.play([&] { received = readRest(framework); });
  completeLargely(framework, key);
  framework.finish();
  EXPECT_TRUE(received == completionWithKey(key));
}

INSTANTIATE_TEST_SUITE_P(
    Each, StrayPackets,
    testing::Values(
        Stray{"AnAnswer", {kAnswer}, {}},
        Stray{"AnAnswerInHalves", {kAnswer.substr(0, 11), kAnswer.substr(11)}, {}},
        Stray{"AnAnswerOfNoType", {frame(999, kSuccess)}, {}},
        Stray{"TwoAnswersAtOnce", {kAnswer + kAnswer}, {kTwice, kSkip}},
        Stray{"TwoAnswersInTurn", {kAnswer, kAnswer}, {kTwice, kSkip}},
        // The second stays where it is, is new when the third comes, and the third is too many.
        Stray{"ThreeAnswersInTurn", {kAnswer, kAnswer, kAnswer}, {kTwice, kSkip, kTwice, kSkip}},
        Stray{"TwoPacketsOfType0", {frame(0, kSuccess), frame(0, kSuccess)}, {kTwice, kSkip}},
        Stray{"TwoEmptyPacketsOfType0", {frame(0, "{}"), frame(0, "{}")}, {}},
        Stray{"HalfAHeader", {"\xDC\x55"}, {}}, Stray{"FewerBytesThanAHeader", {"garbage"}, {}},
        Stray{"AWrongCheckCode", {"\x55\xDC" + kAnswer.substr(2)}, {kNoPacket}},
        Stray{"GarbageAndMore", {"no packet", "at", "all"}, {kNoPacket, kNoPacket, kNoPacket}},
        Stray{"GarbageBehindAnAnswer", {kAnswer + "no packet"}, {kNoPacket}},
        Stray{"AnOverLongLength", {kOverLong}, {kTooLong}},
        Stray{"AnOverLongLengthAndMore", {kOverLong, "x"}, {kTooLong, kTooLong}},
        Stray{"NoPayload", {frame(26, "")}, {kNotJson, kSkip}},
        Stray{"NoJson", {frame(26, "{nope}")}, {kNotJson, kSkip}},
        Stray{"JsonThatIsTooDeep", {frame(26, std::string(5000, '['))}, {kNotJson, kSkip}},
        Stray{"NoObject", {frame(26, "[1]")}, {kNotObject, kSkip}},
        Stray{"AFrameThatNeverEnds", {kMegabytesToCome, "some of it"}, {}}),
    [](const auto &row) { return row.param.name; });

// One byte beyond what the input buffer holds, so that it fills up and reading pauses.
TEST(CompletionDelivery, IsCompleteWhenTheInputBufferIsFull) {
  const std::string key(1000000, 'k');
  FrameworkEnd framework;
  makeNarrow(framework);
  std::string received;
  framework.play([&] {
    received = framework.readBytes(1);
    framework.write(frame(26, std::string(0x1FFFFF9, ' ')));
    received += readRest(framework);
  });
  EXPECT_EQ(completeLargely(framework, key), LogLines{});
  framework.finish();
  EXPECT_TRUE(received == completionWithKey(key));
}

// ---- A framework that leaves, and the signals of the process.

// Runs the body in a process of its own. Returns the body's result, or the signal or status that ended the
// process.
std::string inOwnProcess(const std::function<std::string()> &body) {
  int channel[2];
  if (pipe(channel) != 0) {
    return "no pipe";
  }
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    const std::string text = body();
    const ssize_t written = write(channel[1], text.data(), text.size());
    _exit(written == static_cast<ssize_t>(text.size()) ? 0 : 1);
  }
  close(channel[1]);
  std::string text;
  char bytes[512];
  ssize_t size = 0;
  while ((size = read(channel[0], bytes, sizeof bytes)) > 0) {
    text.append(bytes, static_cast<std::size_t>(size));
  }
  close(channel[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFSIGNALED(status)) {
    return "killed by signal " + std::to_string(WTERMSIG(status));
  }
  return WEXITSTATUS(status) == 0 ? text : "status " + std::to_string(WEXITSTATUS(status));
}

void setSigpipe(void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  sigaction(SIGPIPE, &action, nullptr);
}

void blockSigpipe() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

bool isOfALostPeer(const std::string &line) {
  return line == "agent.cpp: Error: get bufferev error 33" ||
         line == "agent.cpp: Error: get bufferev error 34";
}

const std::string kKey(500000, 'k');

// Runs sessions whose framework closes before, during and after the completion. Returns the changes to the
// signals of the process and the unexpected log lines; an empty string if there are none.
std::string faultsOfLosses() {
  const std::string before = describeSignals();
  const int descriptors = countOpenDescriptors();
  const std::size_t size = completionWithKey(kKey).size();
  std::string faults;
  for (const std::size_t offset : {std::size_t{0}, std::size_t{1}, std::size_t{7}, std::size_t{8},
                                   std::size_t{9}, std::size_t{4096}, size / 2, size - 1, size}) {
    FrameworkEnd framework;
    const auto readThenLeave = [&] {
      framework.readBytes(offset);
      framework.close();
    };
    if (offset == 0) {
      readThenLeave();  // before the completion
    } else {
      framework.play(readThenLeave);
    }
    for (const std::string &line : completeLargely(framework, kKey)) {
      faults += isOfALostPeer(line) ? "" : line + "\n";
    }
    framework.finish();
    const std::string after = describeSignals();
    if (after != before) {
      faults += "after byte " + std::to_string(offset) + " " + after;
    }
  }
  if (countOpenDescriptors() != descriptors) {
    faults += "descriptors are left open";
  }
  return faults;
}

void fail(int) {
  _exit(2);
}

TEST(LossDuringCompletion, DoesNotKillThePluginWithTheDefaultDisposition) {
  EXPECT_EQ(inOwnProcess([] {
              setSigpipe(SIG_DFL);
              return faultsOfLosses();
            }),
            "");
}

TEST(LossDuringCompletion, LeavesTheSignalIgnored) {
  EXPECT_EQ(inOwnProcess([] {
              setSigpipe(SIG_IGN);
              return faultsOfLosses();
            }),
            "");
}

TEST(LossDuringCompletion, DoesNotRunAHandlerOfThePlugin) {
  EXPECT_EQ(inOwnProcess([] {
              setSigpipe(fail);
              return faultsOfLosses();
            }),
            "");
}

TEST(LossDuringCompletion, LeavesTheSignalBlockedAndNotPending) {
  EXPECT_EQ(inOwnProcess([] {
              setSigpipe(SIG_DFL);
              blockSigpipe();
              return faultsOfLosses();
            }),
            "");
}

TEST(LossDuringCompletion, LeavesAnEarlierSignalOfTheThreadPending) {
  EXPECT_EQ(inOwnProcess([] {
              setSigpipe(SIG_DFL);
              blockSigpipe();
              pthread_kill(pthread_self(), SIGPIPE);
              return faultsOfLosses();
            }),
            "");
}

TEST(LossDuringCompletion, LeavesAnEarlierSignalOfTheProcessPending) {
  EXPECT_EQ(inOwnProcess([] {
              setSigpipe(SIG_DFL);
              blockSigpipe();
              kill(getpid(), SIGPIPE);
              return faultsOfLosses();
            }),
            "");
}

// Shows that the tests above can fail: the description of the signals shows each change.
TEST(LossDuringCompletion, IsDetectedInTheDescriptionOfTheSignals) {
  EXPECT_EQ(inOwnProcess([] {
              setSigpipe(SIG_DFL);
              const std::string before = describeSignals();
              blockSigpipe();
              raise(SIGPIPE);
              std::string text = describeSignals();
              return text.find("13: blocked, pending\n") != std::string::npos && before != text
                         ? "differs"
                         : text;
            }),
            "differs");
}

}  // namespace
