// Frames: whole, in pieces, too many, malformed, and cut by a framework that closes. Tested with
// setProgress, whose answer is small.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "support/framework_end.h"
#include "support/log_capture.h"
#include "zarn/arvlapp/agent.h"

namespace {

using namespace arvl_test;
using ZARN::ARVLAPP::Agent;

const std::string kSuccess = "{\"success\":true}\n";
const std::string kRequest = frame(25, "{\"progress_percentage\":1,\"progress_stage\":\"s\"}\n");
const std::string kAnswer = frame(26, kSuccess);
const std::string kReceiveFailed = "agent.cpp: failed to parse setProgress output";
const std::string kNothing = "agent.cpp: Error: receive nothing";
const std::string kSendFailed = "agent.cpp: send PACKET_SET_PROGRESS_REQUEST packet failed";

class Transport : public testing::Test {
 protected:
  void open() { ASSERT_TRUE(openSession(agent_, "import", framework_)); }

  // Answers one request with the bytes, in one write.
  void answerWith(const std::string &bytes) {
    framework_.finish();
    framework_.play([this, bytes] {
      EXPECT_EQ(framework_.readFrame(), kRequest);
      framework_.write(bytes);
    });
  }

  bool ask() {
    const bool granted = agent_.setProgress("s", 1);
    framework_.finish();
    return granted;
  }

  FrameworkEnd framework_;
  Agent agent_;
  LogCapture log_;
};

TEST_F(Transport, DeliversAnAnswer) {
  open();
  for (int i = 0; i < 3; ++i) {
    answerWith(kAnswer);
    EXPECT_TRUE(ask());
  }
  EXPECT_EQ(log_.take(), LogLines{});
}

TEST_F(Transport, DeliversAnAnswerThatComesByteByByte) {
  open();
  framework_.play([this] {
    framework_.readFrame();
    for (const char byte : kAnswer) {
      framework_.write(std::string(1, byte));
      framework_.waitUntilRead();
    }
  });
  EXPECT_TRUE(ask());
  EXPECT_EQ(log_.take(), LogLines{});
}

TEST_F(Transport, AcceptsWhatJsonCppAccepts) {
  open();
  for (const char *text :
       {"{\"success\":true}", "  {\"success\" : true} \r\n\t", "{\"success\":true} x",
        "/* c */{\"success\":true// d\n}", "{\"success\":1,\"success\":true}\n",
        "{\"success\":true,\"%s%n\":\"%d\"}"}) {
    answerWith(frame(26, text));
    EXPECT_TRUE(ask()) << text;
  }
  EXPECT_EQ(log_.take(), LogLines{});
}

TEST_F(Transport, RefusesPayloadsThatAreNotJsonObjects) {
  const LogLines notJson = {"agent.cpp: Failed to parse upload request payload",
                            "agent.cpp: append packet failed, skip it", kNothing, kReceiveFailed};
  const LogLines notObject = {"agent.cpp: payload is invalid (not a json object)",
                              "agent.cpp: append packet failed, skip it", kNothing, kReceiveFailed};
  const std::string deep(5000, '[');
  const std::pair<std::string, LogLines> cases[] = {
      {"", notJson},
      {"{", notJson},
      {"x", notJson},
      {"{\"success\":true", notJson},
      {"{\"a\r", notJson},
      {" \n", notJson},
      {deep, notJson},
      {"{\"a\":" + deep, notJson},
      {"[1]", notObject},
      {"null", notObject},
      {"\"text\"\n", notObject},
      {"5", notObject},
  };
  for (const auto &row : cases) {
    FrameworkEnd framework;
    framework.play([&] {
      framework.readFrame();
      framework.write(frame(26, row.first));
    });
    Agent agent;
    ASSERT_TRUE(openSession(agent, "import", framework));
    EXPECT_FALSE(agent.setProgress("s", 1));
    framework.finish();
    EXPECT_EQ(log_.take(), row.second) << row.first.substr(0, 40);
    EXPECT_EQ(agent.getErrno(), 0);
  }
}

TEST_F(Transport, RefusesAWrongCheckCode) {
  open();
  answerWith("\x55\xDC" + kAnswer.substr(2));
  EXPECT_FALSE(ask());
  EXPECT_EQ(log_.take(), (LogLines{"agent.cpp: protocol error: packet checkCode is not match",
                                   kNothing, kReceiveFailed}));
  answerWith(kAnswer);  // the session does not resynchronise
  EXPECT_FALSE(ask());
  EXPECT_EQ(log_.take(), (LogLines{"agent.cpp: protocol error: packet checkCode is not match",
                                   kNothing, kReceiveFailed}));
}

TEST_F(Transport, RefusesALengthBeyondTheLimit) {
  open();
  answerWith(std::string("\xDC\x55\x00\x1A\x02\x00\x00\x01", 8));
  EXPECT_FALSE(ask());
  EXPECT_EQ(log_.take(),
            (LogLines{"agent.cpp: invalid packet length 33554433", kNothing, kReceiveFailed}));
}

TEST_F(Transport, ShowsALengthOf32BitsWithoutASign) {
  open();
  answerWith(std::string("\xDC\x55\x00\x1A\xFF\xFF\xFF\xFF", 8));
  EXPECT_FALSE(ask());
  EXPECT_EQ(log_.take(),
            (LogLines{"agent.cpp: invalid packet length 4294967295", kNothing, kReceiveFailed}));
}

TEST_F(Transport, LosesBothOfTwoAnswersInOneRead) {
  open();
  answerWith(kAnswer + kAnswer);
  EXPECT_FALSE(ask());
  EXPECT_EQ(log_.take(),
            (LogLines{"agent.cpp: appendPacket twice before consuming",
                      "agent.cpp: append packet failed, skip it", kNothing, kReceiveFailed}));
}

// The second answer stays at the head of the buffer and comes to the next request.
TEST_F(Transport, DeliversALateDuplicateToTheNextRequest) {
  open();
  answerWith(kAnswer + frame(23, "{\"success\":true,\"language\":\"x\"}"));
  EXPECT_FALSE(ask());
  log_.take();
  framework_.play([this] {
    framework_.readFrame();
    framework_.write(std::string("\xDC\x55", 2));  // a read, but no further packet
  });
  EXPECT_FALSE(ask());
  EXPECT_EQ(log_.take(), LogLines{"agent.cpp: invalid response"});
}

TEST_F(Transport, DeliversDataReceivedBetweenCallsToTheNextCall) {
  open();
  framework_.write(kAnswer);
  answerWith("");
  EXPECT_TRUE(ask());
  EXPECT_EQ(log_.take(), LogLines{});
}

TEST_F(Transport, TreatsAPacketOfType0AsNoAnswer) {
  open();
  answerWith(frame(0, kSuccess));
  EXPECT_FALSE(ask());
  EXPECT_EQ(log_.take(), (LogLines{kNothing, kReceiveFailed}));
  answerWith(kAnswer);  // its payload still fills the mailbox
  EXPECT_FALSE(ask());
  EXPECT_EQ(log_.take(),
            (LogLines{"agent.cpp: appendPacket twice before consuming",
                      "agent.cpp: append packet failed, skip it", kNothing, kReceiveFailed}));
}

TEST_F(Transport, ForgetsAnEmptyPacketOfType0) {
  open();
  answerWith(frame(0, "{}"));
  EXPECT_FALSE(ask());
  answerWith(kAnswer);
  EXPECT_TRUE(ask());
}

TEST_F(Transport, RefusesUnknownTypes) {
  open();
  answerWith(frame(60000, kSuccess));
  EXPECT_FALSE(ask());
  EXPECT_EQ(log_.take(), (LogLines{"protocol_util.cpp: invalid packet type 60000",
                                   "agent.cpp: invalid packet [60000]", kReceiveFailed}));
  answerWith(frame(65535, kSuccess));
  EXPECT_FALSE(ask());
  EXPECT_EQ(log_.take(), (LogLines{"protocol_util.cpp: invalid packet type 65535",
                                   "agent.cpp: invalid packet [65535]", kReceiveFailed}));
  answerWith(frame(10, kSuccess));
  EXPECT_FALSE(ask());
  EXPECT_EQ(log_.take(), (LogLines{"agent.cpp: invalid packet [10]", kReceiveFailed}));
}

TEST_F(Transport, ReportsAnAnswerThatJsonCppCannotConvertAsInvalid) {
  open();
  answerWith(
      frame(14, R"({"success":true,"export_result":{"success":"yes","app_data_version":"1.0"}})"));
  EXPECT_FALSE(ask());
  EXPECT_EQ(log_.take(), (LogLines{"agent.cpp: invalid packet [14]", kReceiveFailed}));
}

TEST_F(Transport, NoticesAClosedSocketInTheFirstExchangeAfterIt) {
  open();
  framework_.close();
  EXPECT_FALSE(ask());
  LogLines lines = log_.take();
  if (lines.size() == 3) {  // the kernel decides whether there is an error to report
    EXPECT_TRUE(lines[0] == "agent.cpp: Error: get bufferev error 33" ||
                lines[0] == "agent.cpp: Error: get bufferev error 34");
    lines.erase(lines.begin());
  }
  EXPECT_EQ(lines, (LogLines{"agent.cpp: User canceled, skip recvPacket", kReceiveFailed}));
  EXPECT_EQ(agent_.getErrno(), 1);
  EXPECT_EQ(agent_.getErrorString(), "");

  EXPECT_FALSE(ask());
  EXPECT_EQ(log_.take(), (LogLines{"agent.cpp: User canceled, skip sendPacket", kSendFailed}));
  EXPECT_EQ(agent_.getErrno(), 1);
}

TEST_F(Transport, DeliversAnAnswerThatIsFollowedAtOnceByTheClose) {
  open();
  framework_.play([this] {
    framework_.readFrame();
    framework_.write(kAnswer);
    framework_.close();
  });
  EXPECT_TRUE(ask());
  EXPECT_EQ(agent_.getErrno(), 0);
  EXPECT_EQ(log_.take(), LogLines{});
  EXPECT_FALSE(ask());
  EXPECT_EQ(agent_.getErrno(), 1);
}

// ---- The largest frames.

std::string languageOfSize(std::size_t payloadSize) {
  const std::string head = "{\"language\":\"";
  const std::string tail = "\",\"success\":true}\n";
  return head + std::string(payloadSize - head.size() - tail.size(), 'x') + tail;
}

constexpr std::size_t kHighWater = 0x2000000;

TEST_F(Transport, DeliversTheLargestFrameThatTheBufferHolds) {
  open();
  framework_.play([this] {
    framework_.readFrame();
    framework_.write(frame(23, languageOfSize(kHighWater - 8)));
  });
  std::string language;
  EXPECT_TRUE(agent_.getLanguage(language));
  EXPECT_EQ(language.size(), kHighWater - 8 - 31);
  EXPECT_EQ(log_.take(), LogLines{});
}

TEST_F(Transport, SendsTheLargestRequestAndRefusesOneByteMore) {
  open();
  const std::size_t around =
      std::string("{\"progress_percentage\":1,\"progress_stage\":\"\"}\n").size();
  const std::string stage(kHighWater - around, 's');
  std::string wire;
  framework_.play([&] {
    wire = framework_.readFrame();
    framework_.write(kAnswer);
  });
  EXPECT_TRUE(agent_.setProgress(stage, 1));
  framework_.finish();
  EXPECT_TRUE(wire ==
              frame(25, "{\"progress_percentage\":1,\"progress_stage\":\"" + stage + "\"}\n"));
  EXPECT_FALSE(agent_.setProgress(stage + "s", 1));
  EXPECT_EQ(log_.take(), (LogLines{"agent.cpp: invalid packet length 33554433", kSendFailed}));
  EXPECT_EQ(agent_.getErrno(), 0);
}

// ---- SIGPIPE: the plug-in survives, and its signals are unchanged.

// Runs the body in a process of its own; its status, or minus the signal that killed it.
int statusOf(const std::function<int()> &body) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(20);
    _exit(body());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

bool isMember(const sigset_t &set) {
  return sigismember(&set, SIGPIPE) == 1;
}

bool isBlocked() {
  sigset_t mask;
  pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  return isMember(mask);
}

bool isPending() {
  sigset_t pending;
  sigpending(&pending);
  return isMember(pending);
}

void block() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

// Writes to a socket that the other side has closed.
void writeToALostFramework() {
  FrameworkEnd framework;
  Agent agent;
  openSession(agent, "import", framework);
  framework.close();
  agent.setProgress(std::string(1000000, 's'), 1);
}

void completeToALostFramework() {
  FrameworkEnd framework;
  Agent agent;
  openSession(agent, "import", framework);
  framework.close();
}

int dispositionKept(void (*handler)(int)) {
  signal(SIGPIPE, handler);
  writeToALostFramework();
  completeToALostFramework();
  struct sigaction action;
  sigaction(SIGPIPE, nullptr, &action);
  return action.sa_handler == handler && !isBlocked() && !isPending() ? 0 : 1;
}

TEST(LostFramework, DoesNotKillThePluginAndKeepsTheDisposition) {
  EXPECT_EQ(statusOf([] { return dispositionKept(SIG_DFL); }), 0);
  EXPECT_EQ(statusOf([] { return dispositionKept(SIG_IGN); }), 0);
}

TEST(LostFramework, LeavesABlockedSignalBlockedAndNotPending) {
  EXPECT_EQ(statusOf([] {
              block();
              writeToALostFramework();
              completeToALostFramework();
              return isBlocked() && !isPending() ? 0 : 1;
            }),
            0);
}

TEST(LostFramework, LeavesAnEarlierPendingSignalPending) {
  EXPECT_EQ(statusOf([] {
              block();
              raise(SIGPIPE);
              writeToALostFramework();
              completeToALostFramework();
              return isBlocked() && isPending() ? 0 : 1;
            }),
            0);
}

}  // namespace
