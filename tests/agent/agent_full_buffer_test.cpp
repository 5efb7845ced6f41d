// A frame of more bytes than the input buffer holds never becomes complete. The call that waits for it
// sleeps until the framework closes the connection, wholly or its sending side only.

#include <dlfcn.h>
#include <event2/event.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/framework_end.h"
#include "support/log_capture.h"
#include "zarn/arvlapp/agent.h"
#include "zarn/visibility.h"

namespace {

// The plug-in's descriptor while the hook of epoll_wait observes it.
std::atomic<int> watchedFd{-1};
// The results of waits with unread data in the socket: `sleeps` if no event was ready, and the number of
// waits in which one was.
std::atomic<bool> sleeps{false};
std::atomic<long> wakeups{0};
// More waits than reading a full buffer needs.
constexpr long kSpins = 200000;

// The function that fails, or "".
std::string failing;
const event *created = nullptr;  // by event_new

bool hasUnreadData() {
  int unread = 0;
  return watchedFd >= 0 && ioctl(watchedFd, FIONREAD, &unread) == 0 && unread > 0;
}

template <typename Function>
Function next(const char *name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" ZARN_EXPORT int epoll_wait(int fd, epoll_event *events, int size, int timeout) {
  static const auto real = next<int (*)(int, epoll_event *, int, int)>("epoll_wait");
  if (hasUnreadData()) {
    if (real(fd, events, size, 0) == 0) {
      sleeps = true;
    } else if (++wakeups == kSpins) {
      std::fputs("the session spins\n", stderr);
      std::abort();
    }
  }
  return real(fd, events, size, timeout);
}

extern "C" ZARN_EXPORT int epoll_create1(int flags) noexcept {
  static const auto real = next<int (*)(int)>("epoll_create1");
  if (failing == "epoll_create1") {
    errno = EMFILE;
    return -1;
  }
  return real(flags);
}

// Fails for a watch for a close only.
extern "C" ZARN_EXPORT int epoll_ctl(int epoll, int operation, int fd, epoll_event *what) noexcept {
  static const auto real = next<int (*)(int, int, int, epoll_event *)>("epoll_ctl");
  if (failing == "epoll_ctl" && what->events == EPOLLRDHUP) {
    errno = ENOSPC;
    return -1;
  }
  return real(epoll, operation, fd, what);
}

extern "C" ZARN_EXPORT event *event_new(event_base *base, evutil_socket_t fd, short what,
                                        event_callback_fn callback, void *argument) {
  static const auto real =
      next<event *(*)(event_base *, evutil_socket_t, short, event_callback_fn, void *)>(
          "event_new");
  event *result = failing == "event_new" ? nullptr : real(base, fd, what, callback, argument);
  created = result;
  return result;
}

extern "C" ZARN_EXPORT int event_add(event *added, const timeval *timeout) {
  static const auto real = next<int (*)(event *, const timeval *)>("event_add");
  return failing == "event_add" && added == created ? -1 : real(added, timeout);
}

namespace {

using namespace arvl_test;
using ZARN::ARVLAPP::Agent;

// The frame is of 0x2000001 bytes, one more than the buffer holds.
const std::string kBeyondTheBuffer = frame(26, std::string(0x1FFFFF9, ' '));
const std::string kCanceled = "agent.cpp: User canceled, skip recvPacket";
const std::string kReceiveFailed = "agent.cpp: failed to parse setProgress output";
const std::string kReadingFailed = "agent.cpp: Error: get bufferev error 33";
const std::string kWritingFailed = "agent.cpp: Error: get bufferev error 34";

class FullBuffer : public testing::Test {
 protected:
  FullBuffer() {
    sleeps = false;
    wakeups = 0;
    returned_ = false;
  }
  ~FullBuffer() override {
    watchedFd = -1;
    failing.clear();
  }

  void open(Agent &agent) { ASSERT_TRUE(openSession(agent, "import", framework_)); }

  // Fills the buffer from the framework's end. Returns when the plug-in sleeps with a byte unread.
  void fillAndWaitUntilItSleeps() {
    watchedFd = framework_.pluginFd();
    framework_.write(kBeyondTheBuffer);
    waitUntilItSleeps();
  }

  void waitUntilItSleeps() {
    while (!sleeps && !returned_) {
      sched_yield();
    }
    EXPECT_FALSE(returned_) << "the call did not wait";
  }

  bool ask(Agent &agent) {
    const bool granted = agent.setProgress("s", 1);
    returned_ = true;
    framework_.finish();
    return granted;
  }

  // A session whose completion cannot be written at once.
  LogLines completeLargely() {
    const int narrow = 4096;
    setsockopt(framework_.pluginFd(), SOL_SOCKET, SO_SNDBUF, &narrow, sizeof narrow);
    LogCapture log;
    {
      Agent agent;
      open(agent);
      agent.setErrorMsg("s", std::string(1000000, 'k'));
    }
    returned_ = true;
    framework_.finish();
    return log.take();
  }

  FrameworkEnd framework_;
  std::atomic<bool> returned_{false};
};

TEST_F(FullBuffer, InARequestWaitsUntilTheFrameworkClosesItsSendingSide) {
  framework_.play([this] {
    framework_.readFrame();
    fillAndWaitUntilItSleeps();
    shutdown(framework_.fd(), SHUT_WR);
  });
  LogCapture log;
  {
    Agent agent;
    open(agent);
    agent.setSuccess();
    EXPECT_FALSE(ask(agent));
    EXPECT_EQ(log.take(), (LogLines{kCanceled, kReceiveFailed}));
    EXPECT_EQ(agent.getErrno(), 1);
    EXPECT_EQ(agent.getFrameworkMajorVersion(), -1);
    EXPECT_FALSE(ask(agent));
    EXPECT_EQ(log.take(), (LogLines{"agent.cpp: User canceled, skip sendPacket",
                                    "agent.cpp: send PACKET_SET_PROGRESS_REQUEST packet failed"}));
  }
  EXPECT_EQ(framework_.readAll(), "") << "a completion was sent";
}

TEST_F(FullBuffer, InARequestWaitsUntilTheFrameworkCloses) {
  framework_.play([this] {
    framework_.readFrame();
    fillAndWaitUntilItSleeps();
    framework_.close();
  });
  LogCapture log;
  Agent agent;
  open(agent);
  EXPECT_FALSE(ask(agent));
  EXPECT_EQ(log.take(), (LogLines{kCanceled, kReceiveFailed}));
  EXPECT_EQ(agent.getErrno(), 1);
}

// The framework has not read the request: its close is an error on the plug-in's side.
TEST_F(FullBuffer, InARequestWaitsUntilTheConnectionIsReset) {
  framework_.play([this] {
    fillAndWaitUntilItSleeps();
    framework_.close();
  });
  LogCapture log;
  Agent agent;
  open(agent);
  EXPECT_FALSE(ask(agent));
  EXPECT_EQ(log.take(), (LogLines{kReadingFailed, kCanceled, kReceiveFailed}));
  EXPECT_EQ(agent.getErrno(), 1);
}

TEST_F(FullBuffer, InACompletionLetsAHalfCloseCancelIt) {
  std::string received;
  framework_.play([&] {
    received = framework_.readBytes(1);  // the completion is on its way
    fillAndWaitUntilItSleeps();
    shutdown(framework_.fd(), SHUT_WR);
    received += framework_.readBytes(2000000);
  });
  EXPECT_EQ(completeLargely(), LogLines{});
  EXPECT_LT(received.size(), 1000000u) << "the completion was written out";
}

TEST_F(FullBuffer, InACompletionLetsACloseCancelIt) {
  framework_.play([&] {
    framework_.readBytes(1);
    fillAndWaitUntilItSleeps();
    framework_.close();
  });
  const LogLines lines = completeLargely();
  EXPECT_TRUE(lines == LogLines{kReadingFailed} || lines == LogLines{kWritingFailed})
      << testing::PrintToString(lines);
}

class UnwatchedFullBuffer : public FullBuffer, public testing::WithParamInterface<const char *> {};

TEST_P(UnwatchedFullBuffer, EndsTheSession) {
  framework_.play([this] {
    framework_.readFrame();
    framework_.write(kBeyondTheBuffer);
  });
  LogCapture log;
  Agent agent;
  open(agent);
  failing = GetParam();
  EXPECT_FALSE(ask(agent));
  EXPECT_EQ(log.take(), (LogLines{kReadingFailed, kCanceled, kReceiveFailed}));
  EXPECT_EQ(agent.getErrno(), 1);
}

INSTANTIATE_TEST_SUITE_P(Each, UnwatchedFullBuffer,
                         testing::Values("epoll_create1", "event_new", "epoll_ctl", "event_add"));

// A frame that fills the buffer and is refused stays in it: later requests fail at once, since no
// answer can be read, and the close is noticed all the same.
TEST_F(FullBuffer, OfARefusedFrameFailsLaterRequestsAtOnceAndNoticesTheClose) {
  framework_.play([this] {
    framework_.readFrame();
    framework_.write(frame(26, std::string(0x1FFFFF8, ' ')));
  });
  LogCapture log;
  Agent agent;
  open(agent);
  EXPECT_FALSE(ask(agent));
  const std::string nothing = "agent.cpp: Error: receive nothing";
  EXPECT_EQ(log.take(),
            (LogLines{"agent.cpp: Failed to parse upload request payload",
                      "agent.cpp: append packet failed, skip it", nothing, kReceiveFailed}));
  EXPECT_FALSE(ask(agent));
  EXPECT_EQ(log.take(), (LogLines{nothing, kReceiveFailed}));
  EXPECT_EQ(agent.getErrno(), 0);
  shutdown(framework_.fd(), SHUT_WR);
  EXPECT_FALSE(ask(agent));
  EXPECT_EQ(log.take(), (LogLines{kCanceled, kReceiveFailed}));
  EXPECT_EQ(agent.getErrno(), 1);
}

// A byte more stays unread in the socket: writing the completion must not wake up for it.
TEST_F(FullBuffer, OfARefusedFrameLetsACompletionBeWritten) {
  const int narrow = 4096;
  setsockopt(framework_.pluginFd(), SOL_SOCKET, SO_SNDBUF, &narrow, sizeof narrow);
  std::string received;
  {
    Agent agent;
    open(agent);
    agent.setErrorMsg("s", std::string(1000000, 'k'));
    framework_.play([this] {
      framework_.readFrame();
      framework_.write(frame(26, std::string(0x1FFFFF8, ' ')) + "x");
    });
    EXPECT_FALSE(ask(agent));
    returned_ = false;
    framework_.play([&] {
      waitUntilItSleeps();
      received = framework_.readAll();
    });
    watchedFd = framework_.pluginFd();
  }
  returned_ = true;
  framework_.finish();
  const std::string reason = R"({"key":")" + std::string(1000000, 'k') + R"(","section":"s"})";
  EXPECT_EQ(received, frame(15, R"({"err_msg":)" + reason + ",\"success\":false}\n"));
}

}  // namespace
