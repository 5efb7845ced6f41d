// The log lines that no framework can provoke: libevent or the C library fails, or memory runs out.

#include <dlfcn.h>
#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <map>
#include <new>
#include <string>
#include <thread>

#include "support/framework_end.h"
#include "support/log_capture.h"
#include "zarn/arvlapp/agent.h"
#include "zarn/visibility.h"

namespace {

// Functions that fail while they are named here; how often each has been called.
thread_local std::map<std::string, bool> *failing = nullptr;
thread_local std::size_t largestNew = 0;  // operator new fails beyond it; 0: never

bool fails(const char *name) {
  return failing != nullptr && failing->count(name) != 0;
}

class Failing {
 public:
  explicit Failing(std::map<std::string, bool> names) : names_(std::move(names)) {
    failing = &names_;
  }
  ~Failing() { failing = nullptr; }
  Failing(const Failing &) = delete;
  Failing &operator=(const Failing &) = delete;

 private:
  std::map<std::string, bool> names_;
};

template <typename Function>
Function next(const char *name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

#define ARVL_FAILS(result, name, parameters, arguments, failure) \
  extern "C" ZARN_EXPORT result name parameters {                \
    static const auto real = next<result(*) parameters>(#name);  \
    return fails(#name) ? (failure) : real arguments;            \
  }

ARVL_FAILS(event_base *, event_base_new, (), (), nullptr)
ARVL_FAILS(int, event_base_loopexit, (event_base * base, const timeval *time), (base, time), -1)
ARVL_FAILS(int, event_base_loopbreak, (event_base * base), (base), (real(base), -1))
ARVL_FAILS(int, event_base_dispatch, (event_base * base), (base), -1)
ARVL_FAILS(int, evutil_make_socket_nonblocking, (evutil_socket_t fd), (fd), -1)
ARVL_FAILS(bufferevent *, bufferevent_socket_new,
           (event_base * base, evutil_socket_t fd, int options), (base, fd, options), nullptr)
ARVL_FAILS(int, bufferevent_enable, (bufferevent * bev, short what), (bev, what), -1)

// Fails for a header, or for a payload only: more than a header's bytes.
extern "C" ZARN_EXPORT int evbuffer_add(evbuffer *buffer, const void *data, size_t size) {
  static const auto real = next<int (*)(evbuffer *, const void *, size_t)>("evbuffer_add");
  const bool failed = fails("evbuffer_add") || (fails("evbuffer_add of a payload") && size > 8);
  return failed ? -1 : real(buffer, data, size);
}

// Fails for any frame, or only for a whole frame, which is longer than its header.
extern "C" ZARN_EXPORT unsigned char *evbuffer_pullup(evbuffer *buffer, ev_ssize_t size) {
  static const auto real = next<unsigned char *(*)(evbuffer *, ev_ssize_t)>("evbuffer_pullup");
  const bool failed = fails("evbuffer_pullup") || (fails("evbuffer_pullup of a frame") && size > 8);
  return failed ? nullptr : real(buffer, size);
}

// The size of the answer, not of the request that was written.
thread_local std::size_t undrainable = 0;
extern "C" ZARN_EXPORT int evbuffer_drain(evbuffer *buffer, size_t size) {
  static const auto real = next<int (*)(evbuffer *, size_t)>("evbuffer_drain");
  return undrainable != 0 && size == undrainable ? -1 : real(buffer, size);
}

thread_local int sendError = 0;

// An error of the socket itself, where the session tries it first.
extern "C" ZARN_EXPORT ssize_t send(int fd, const void *data, size_t size, int flags) {
  static const auto real = next<ssize_t (*)(int, const void *, size_t, int)>("send");
  if (fails("send")) {
    errno = sendError;
    return sendError != 0 ? -1 : 0;  // without an error it takes nothing
  }
  return real(fd, data, size, flags);
}

// A file of a negative size.
extern "C" ZARN_EXPORT int lstat(const char *path, struct stat *status) noexcept {
  static const auto real = next<int (*)(const char *, struct stat *)>("lstat");
  const int result = real(path, status);
  if (fails("lstat")) {
    status->st_size = -5;
  }
  if (fails("lstat blocks")) {
    status->st_blocks = -6;
  }
  return result;
}
extern "C" ZARN_EXPORT int lstat64(const char *path, struct stat64 *status) noexcept {
  return lstat(path, reinterpret_cast<struct stat *>(status));
}

void *operator new(std::size_t size) {
  if (largestNew != 0 && size > largestNew) {
    throw std::bad_alloc();
  }
  void *memory = std::malloc(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

// Inlined, it would look to the compiler as if what new gave were freed by another way.
[[gnu::noinline]] void operator delete(void *memory) noexcept {
  std::free(memory);
}

[[gnu::noinline]] void operator delete(void *memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

using namespace arvl_test;
using ZARN::ARVLAPP::Agent;
using ZARN::ARVLAPP::StorageUsage;

const std::string kAnswer = frame(26, "{\"success\":true}");
const std::string kNothing = "agent.cpp: Error: receive nothing";
const std::string kReceiveFailed = "agent.cpp: failed to parse setProgress output";
const std::string kSendFailed = "agent.cpp: send PACKET_SET_PROGRESS_REQUEST packet failed";

LogLines linesOfInit(const std::string &function) {
  FrameworkEnd framework;
  LogCapture log;
  Agent agent;
  const Failing failure({{function, true}});
  EXPECT_FALSE(openSession(agent, "import", framework));
  return log.take();
}

TEST(Init, NamesTheStepThatFailed) {
  EXPECT_EQ(linesOfInit("event_base_new"),
            (LogLines{"agent.cpp: Can't get an event_base", "agent.cpp: connection init failed"}));
  EXPECT_EQ(
      linesOfInit("evutil_make_socket_nonblocking"),
      (LogLines{"agent.cpp: make socket nonblocking failed", "agent.cpp: connection init failed"}));
  EXPECT_EQ(linesOfInit("bufferevent_socket_new"),
            (LogLines{"agent.cpp: bufferEvent new failed", "agent.cpp: connection init failed"}));
  EXPECT_EQ(linesOfInit("bufferevent_enable"), (LogLines{"agent.cpp: bufferEvent enable failed",
                                                         "agent.cpp: connection init failed"}));
}

struct DescriptorFlags {
  bool isNonblocking;
  bool isCloseOnExec;
};

// Returns the flags of the caller's descriptor after an init during which the function fails.
DescriptorFlags flagsAfterInitWhile(const std::string &function) {
  FrameworkEnd framework;
  const int fd = framework.pluginFd();
  fcntl(fd, F_SETFD, 0);  // as a plug-in gets it, to survive exec
  Agent agent;
  const Failing failure({{function, true}});
  EXPECT_FALSE(openSession(agent, "import", framework));
  return {(fcntl(fd, F_GETFL) & O_NONBLOCK) != 0, (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0};
}

TEST(Init, LeavesTheDescriptorAloneUntilItOwnsIt) {
  const DescriptorFlags withoutBase = flagsAfterInitWhile("event_base_new");
  EXPECT_FALSE(withoutBase.isNonblocking);
  EXPECT_FALSE(withoutBase.isCloseOnExec);
  EXPECT_FALSE(flagsAfterInitWhile("bufferevent_socket_new").isCloseOnExec);
  EXPECT_TRUE(flagsAfterInitWhile("bufferevent_enable").isCloseOnExec) << "the session owns it";
}

class Faults : public testing::Test {
 protected:
  Faults() { EXPECT_TRUE(openSession(agent_, "import", framework_)); }

  void answerWith(const std::string &bytes) {
    framework_.play([this, bytes] {
      framework_.readFrame();
      framework_.write(bytes);
    });
  }

  // One request while the function fails.
  bool askWhile(const std::string &function, const std::string &stage = "s") {
    const Failing failure({{function, true}});
    return agent_.setProgress(stage, 1);
  }

  FrameworkEnd framework_;
  Agent agent_;
  LogCapture log_;
};

TEST_F(Faults, AHeaderThatCannotBeQueuedFailsTheSend) {
  EXPECT_FALSE(askWhile("evbuffer_add"));
  EXPECT_EQ(log_.take(), (LogLines{"agent.cpp: evbuffer_add(header) failed", kSendFailed}));
}

TEST_F(Faults, APayloadThatCannotBeQueuedFailsTheSend) {
  EXPECT_FALSE(askWhile("evbuffer_add of a payload"));
  EXPECT_EQ(log_.take(), (LogLines{"agent.cpp: evbuffer_add(payload) failed", kSendFailed}));
}

// A socket that takes a part only, so that the loop has to write the rest.
class FullSocket : public Faults {
 protected:
  FullSocket() {
    const int small = 4096;
    setsockopt(framework_.pluginFd(), SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
  }
  ~FullSocket() override { framework_.close(); }  // or the completion would wait behind the request
};

TEST_F(FullSocket, AFailureToWatchForWritingFailsTheRequest) {
  EXPECT_FALSE(askWhile("bufferevent_enable", std::string(1000000, 's')));
  EXPECT_EQ(log_.take(),
            (LogLines{"agent.cpp: bufferEvent enable failed", kNothing, kReceiveFailed}));
}

TEST_F(FullSocket, ALoopThatFailsFailsTheRequest) {
  EXPECT_FALSE(askWhile("event_base_dispatch", std::string(1000000, 's')));
  EXPECT_EQ(log_.take(), (LogLines{kNothing, kReceiveFailed}));
}

// The completion is queued, so that its send has not failed.
LogLines linesOfALargeCompletionWhile(const std::string &function) {
  FrameworkEnd framework;
  const int small = 4096;
  setsockopt(framework.pluginFd(), SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
  LogCapture log;
  {
    Agent agent;
    EXPECT_TRUE(openSession(agent, "import", framework));
    agent.setErrorMsg("s", std::string(1000000, 'k'));
    const Failing failure({{function, true}});
    agent.~Agent();
    new (&agent) Agent();
  }
  return log.take();
}

TEST(Completion, ThatTheLoopCannotWriteIsLoggedOnce) {
  EXPECT_EQ(linesOfALargeCompletionWhile("event_base_dispatch"),
            LogLines{"agent.cpp: event loop failed, packet is not written"});
  EXPECT_EQ(linesOfALargeCompletionWhile("bufferevent_enable"),
            LogLines{"agent.cpp: bufferEvent enable failed"});
}

TEST_F(Faults, ALoopThatCannotExitIsBroken) {
  answerWith(kAnswer);
  EXPECT_TRUE(askWhile("event_base_loopexit"));
  EXPECT_EQ(log_.take(), LogLines{"agent.cpp: loop exit failed"});
}

TEST_F(Faults, ABreakThatFailsIsLogged) {
  answerWith("no packet at all");
  EXPECT_FALSE(askWhile("event_base_loopbreak"));
  EXPECT_EQ(log_.take(), (LogLines{"agent.cpp: protocol error: packet checkCode is not match",
                                   "agent.cpp: loop break failed", kNothing, kReceiveFailed}));
}

TEST_F(Faults, ABreakThatFailsOnTheCloseIsLogged) {
  framework_.play([this] {
    framework_.readFrame();
    framework_.close();
  });
  EXPECT_FALSE(askWhile("event_base_loopbreak"));
  EXPECT_EQ(log_.take(), (LogLines{"agent.cpp: loop exit failed",
                                   "agent.cpp: User canceled, skip recvPacket", kReceiveFailed}));
}

TEST(Completion, ThatIsWrittenLogsABreakThatFails) {
  FrameworkEnd framework;
  const int small = 4096;
  setsockopt(framework.pluginFd(), SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
  framework.play([&] { framework.readAll(); });
  LogCapture log;
  {
    Agent agent;
    ASSERT_TRUE(openSession(agent, "import", framework));
    agent.setErrorMsg("s", std::string(1000000, 'k'));
    const Failing failure({{"event_base_loopbreak", true}});
    agent.~Agent();
    new (&agent) Agent();
  }
  EXPECT_EQ(log.take(), LogLines{"agent.cpp: loop exit failed"});
}

TEST_F(Faults, ABusySocketIsWrittenByTheLoop) {
  for (const int error : {EINTR, EAGAIN, 0}) {
    framework_.finish();
    answerWith(kAnswer);
    sendError = error;
    EXPECT_TRUE(askWhile("send"));
  }
  EXPECT_EQ(log_.take(), LogLines{});
}

TEST_F(Faults, ASocketThatFailsAtOnceIsLoggedLikeAnErrorInTheLoop) {
  sendError = EIO;
  EXPECT_FALSE(askWhile("send"));
  EXPECT_EQ(log_.take(), (LogLines{"agent.cpp: Error: get bufferev error 34",
                                   "agent.cpp: User canceled, skip recvPacket", kReceiveFailed}));
  EXPECT_EQ(agent_.getErrno(), 1);
}

// The loop also writes to a descriptor that is not a socket, such as a pipe with a reader.
TEST(Completion, IsWrittenToADescriptorThatIsNotASocket) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  LogCapture log;
  {
    Agent agent;
    CommandLine line = {"import", "-f", std::to_string(ends[1]), "-v", "2.3"};
    ASSERT_TRUE(agent.init(line.argc(), line.argv()));
  }
  char bytes[64];
  const ssize_t size = read(ends[0], bytes, sizeof bytes);
  close(ends[0]);
  EXPECT_EQ(std::string(bytes, static_cast<std::size_t>(size)), frame(15, "{\"success\":false}\n"));
  EXPECT_EQ(log.take(), LogLines{});
}

TEST_F(Faults, AFrameThatCannotBeMadeContiguousEndsTheCall) {
  for (const char *function : {"evbuffer_pullup", "evbuffer_pullup of a frame"}) {
    framework_.finish();
    answerWith(kAnswer);
    EXPECT_FALSE(askWhile(function));
    EXPECT_EQ(log_.take(), (LogLines{kNothing, kReceiveFailed}));
  }
}

TEST_F(Faults, ABufferThatCannotBeDrainedIsFatalToTheSession) {
  answerWith(kAnswer);
  undrainable = kAnswer.size();
  EXPECT_TRUE(agent_.setProgress("s", 1)) << "the answer itself is there";
  undrainable = 0;
  EXPECT_EQ(log_.take(), LogLines{"agent.cpp: failed to drain input buffer, fatal"});
}

TEST(Completion, IsNotSentAndDoesNotThrowWhenOutOfMemory) {
  FrameworkEnd framework;
  LogCapture log;
  {
    Agent agent;
    ASSERT_TRUE(openSession(agent, "import", framework));
    agent.setErrorMsg("s", std::string(1000000, 'k'));
    largestNew = 100000;
  }
  largestNew = 0;
  EXPECT_EQ(log.take(), LogLines{"agent.cpp: completion not sent: std::bad_alloc"});
  EXPECT_EQ(framework.readAll(), "");
}

TEST_F(Faults, AnAnswerIsAParseFailureWhenOutOfMemory) {
  const std::string payload = "{\"success\":true,\"x\":\"" + std::string(1000000, 'x') + "\"}\n";
  answerWith(frame(26, payload));
  largestNew = 100000;
  const bool granted = agent_.setProgress("s", 1);
  largestNew = 0;
  EXPECT_FALSE(granted);
  EXPECT_EQ(log_.take(),
            (LogLines{"agent.cpp: Failed to parse upload request payload",
                      "agent.cpp: append packet failed, skip it", kNothing, kReceiveFailed}));
}

void expectNegative(const std::string &function, const std::string &counters) {
  FrameworkEnd framework;
  std::string wire;
  framework.play([&] { wire = framework.readAll(); });
  LogCapture log;
  {
    Agent agent;
    ASSERT_TRUE(openSession(agent, "estimate_exportion", framework));
    StorageUsage usage;
    {
      const Failing failure({{function, true}});
      EXPECT_TRUE(usage.addOne("/proc/self/exe"));  // a link of no size and no blocks
    }
    agent.setStorageUsage(usage);
    agent.setSuccess();
  }
  framework.finish();
  EXPECT_EQ(wire, frame(2, "{\"success\":false}\n"));
  EXPECT_EQ(log.take(),
            LogLines{"agent.cpp: invalid storage usage.cfile = 1, cDir = 0, " + counters});
}

TEST(EstimateCompletion, IsAFailureWhenACounterIsNegative) {
  expectNegative("lstat", "size = -5, blocks = 0");
  expectNegative("lstat blocks", "size = 0, blocks = -6");
}

// The guard's own thread: a signal that was pending before stays pending.
TEST(PendingSigpipe, OutlivesAWriteThroughTheLoop) {
  bool stayed = false;
  std::thread([&] {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    raise(SIGPIPE);
    FrameworkEnd framework;
    const int small = 4096;
    setsockopt(framework.pluginFd(), SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    framework.play([&] {
      framework.readBytes(500000);  // more than goes out before the loop writes
      framework.close();
    });
    Agent agent;
    openSession(agent, "import", framework);
    agent.setProgress(std::string(1000000, 's'), 1);
    const timespec noWait = {0, 0};
    stayed = sigtimedwait(&set, nullptr, &noWait) == SIGPIPE;
  }).join();
  EXPECT_TRUE(stayed);
}

}  // namespace
