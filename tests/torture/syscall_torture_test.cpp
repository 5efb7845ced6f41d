// Fails every system call of the transport in turn, with each of its errors. A temporary error (EINTR,
// EAGAIN, a short count) must have no effect; any other error must end in a failed call.

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <string>
#include <vector>

#include "torture/session_run.h"
#include "zarn/visibility.h"

namespace {

enum Call {
  kReadv,
  kWritev,
  kSend,
  kIoctl,
  kFcntl,
  kEpollCreate,
  kEpollCtl,
  kEpollWait,
  kCallCount
};

constexpr const char *kCallNames[] = {"readv", "writev",        "send",      "ioctl",
                                      "fcntl", "epoll_create1", "epoll_ctl", "epoll_wait"};

constexpr int kShort = -1;  // instead of an error: transfers one byte only

// The fault that is injected into the calls of the plug-in's thread while it is armed.
struct Injection {
  bool armed = false;
  Call call = kCallCount;
  int failAt = 0;  // counted from 1
  int error = 0;
  int counts[kCallCount] = {};
  int closedTwice = 0;

  // Returns true if this call must fail.
  bool strikes(Call made) { return armed && ++counts[made] == failAt && made == call; }
};

thread_local Injection injection;

template <typename Function>
Function next(const char *name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// Returns the result of a transfer with the injected fault: one byte, or -1 and errno.
template <typename OneByte>
ssize_t strike(const OneByte &oneByte) {
  if (injection.error == kShort) {
    return oneByte();
  }
  errno = injection.error;
  return -1;
}

}  // namespace

extern "C" {

ZARN_EXPORT ssize_t readv(int fd, const iovec *pieces, int count) {
  static const auto real = next<ssize_t (*)(int, const iovec *, int)>("readv");
  if (injection.strikes(kReadv)) {
    const iovec byte = {pieces[0].iov_base, 1};
    return strike([&] { return real(fd, &byte, 1); });
  }
  return real(fd, pieces, count);
}

ZARN_EXPORT ssize_t writev(int fd, const iovec *pieces, int count) {
  static const auto real = next<ssize_t (*)(int, const iovec *, int)>("writev");
  if (injection.strikes(kWritev)) {
    const iovec byte = {pieces[0].iov_base, 1};
    return strike([&] { return real(fd, &byte, 1); });
  }
  return real(fd, pieces, count);
}

ZARN_EXPORT ssize_t send(int fd, const void *data, size_t size, int flags) {
  static const auto real = next<ssize_t (*)(int, const void *, size_t, int)>("send");
  if (injection.strikes(kSend)) {
    return strike([&] { return real(fd, data, 1, flags); });
  }
  return real(fd, data, size, flags);
}

ZARN_EXPORT int ioctl(int fd, unsigned long request, ...) noexcept {
  static const auto real = next<int (*)(int, unsigned long, void *)>("ioctl");
  va_list arguments;
  va_start(arguments, request);
  void *argument = va_arg(arguments, void *);
  va_end(arguments);
  if (injection.strikes(kIoctl)) {
    errno = injection.error;
    return -1;
  }
  return real(fd, request, argument);
}

ZARN_EXPORT int fcntl64(int fd, int command, ...) {
  static const auto real = next<int (*)(int, int, void *)>("fcntl64");
  va_list arguments;
  va_start(arguments, command);
  void *argument = va_arg(arguments, void *);
  va_end(arguments);
  if (injection.strikes(kFcntl)) {
    errno = injection.error;
    return -1;
  }
  return real(fd, command, argument);
}

ZARN_EXPORT int epoll_create1(int flags) noexcept {
  static const auto real = next<int (*)(int)>("epoll_create1");
  if (injection.strikes(kEpollCreate)) {
    errno = injection.error;
    return -1;
  }
  return real(flags);
}

ZARN_EXPORT int epoll_ctl(int epoll, int operation, int fd, epoll_event *event) noexcept {
  static const auto real = next<int (*)(int, int, int, epoll_event *)>("epoll_ctl");
  if (injection.strikes(kEpollCtl)) {
    errno = injection.error;
    return -1;
  }
  return real(epoll, operation, fd, event);
}

ZARN_EXPORT int epoll_wait(int epoll, epoll_event *events, int size, int timeout) {
  static const auto real = next<int (*)(int, epoll_event *, int, int)>("epoll_wait");
  if (injection.strikes(kEpollWait)) {
    errno = injection.error;
    return -1;
  }
  return real(epoll, events, size, timeout);
}

ZARN_EXPORT int close(int fd) {
  static const auto real = next<int (*)(int)>("close");
  const int result = real(fd);
  if (injection.armed && result != 0 && errno == EBADF) {
    ++injection.closedTwice;
  }
  return result;
}

}  // extern "C"

namespace {

using namespace arvl_test;

struct Failure {
  Call call;
  int error;
  bool passes;  // the run has to end as if nothing had happened
};

constexpr Failure kFailures[] = {
    {kReadv, EINTR, true},         {kReadv, EAGAIN, true},        {kReadv, kShort, true},
    {kReadv, EIO, false},          {kReadv, ECONNRESET, false},   {kReadv, ENOMEM, false},
    {kWritev, EINTR, true},        {kWritev, EAGAIN, true},       {kWritev, kShort, true},
    {kWritev, EIO, false},         {kWritev, EPIPE, false},       {kWritev, ECONNRESET, false},
    {kSend, EINTR, true},          {kSend, EAGAIN, true},         {kSend, kShort, true},
    {kSend, EIO, false},           {kSend, EPIPE, false},         {kSend, ECONNRESET, false},
    {kSend, ENOMEM, false},        {kIoctl, EIO, true},           {kFcntl, EIO, false},
    {kEpollCreate, EMFILE, false}, {kEpollCreate, ENOMEM, false}, {kEpollCtl, ENOMEM, false},
    {kEpollWait, EINTR, true},     {kEpollWait, EIO, false},
};

int openDescriptors() {
  DIR *dir = opendir("/proc/self/fd");
  int count = 0;
  while (readdir(dir) != nullptr) {
    ++count;
  }
  closedir(dir);
  return count;
}

struct Outcome {
  SessionReport report;
  Injection injection;
};

Outcome runWith(const Scenario &scenario, const Failure &failure, int failAt) {
  Outcome outcome;
  outcome.report = runSession(
      scenario, Misdeed(),
      [&] {
        injection = Injection();
        injection.call = failure.call;
        injection.error = failure.error;
        injection.failAt = failAt;
        injection.armed = true;
      },
      [&] {
        injection.armed = false;
        outcome.injection = injection;
      });
  return outcome;
}

bool isAsIfNothingHappened(const Scenario &scenario, const SessionReport &report) {
  return report.result == Result::kAsExpected && report.received == scenario.completion;
}

const char *findFault(const Scenario &scenario, const Failure &failure, const Outcome &outcome) {
  const SessionReport &report = outcome.report;
  if (outcome.injection.closedTwice != 0) {
    return "a descriptor was closed twice";
  }
  if (isAsIfNothingHappened(scenario, report)) {
    return nullptr;
  }
  if (failure.passes) {
    return "a temporary error had an effect";
  }
  if (report.result == Result::kWrong) {
    return "a call claimed success with a wrong value";
  }
  if (report.logLines == 0) {
    return "a failure without a log line";
  }
  const bool isPart = scenario.completion.compare(0, report.received.size(), report.received) == 0;
  if (!isPart && report.received.find("\"success\":true") != std::string::npos) {
    return "the completion claims success";
  }
  return nullptr;
}

// Runs in a process of its own, so that a hang or crash ends only that process. Returns the fault, or an
// empty string.
std::string strikeOnce(const Scenario &scenario, const Failure &failure, int failAt) {
  return inProcess(20, [&] {
    const int before = openDescriptors();
    const Outcome outcome = runWith(scenario, failure, failAt);
    const char *fault = findFault(scenario, failure, outcome);
    if (fault == nullptr && openDescriptors() != before) {
      fault = "a descriptor leaks";
    }
    if (fault != nullptr) {
      dprintf(STDERR_FILENO, "FAULT: %s", fault);
    }
    return fault != nullptr ? 1 : 0;
  });
}

class SyscallTorture : public testing::TestWithParam<std::size_t> {};

TEST_P(SyscallTorture, EndsInAFailedCallOrAsExpected) {
  const Scenario &scenario = scenarios()[GetParam()];
  const Failure none = {kCallCount, 0, true};
  const Outcome clean = runWith(scenario, none, 0);
  ASSERT_TRUE(isAsIfNothingHappened(scenario, clean.report));
  int strikes = 0;
  for (const Failure &failure : kFailures) {
    for (int failAt = 1; failAt <= clean.injection.counts[failure.call]; ++failAt) {
      ++strikes;
      EXPECT_EQ(strikeOnce(scenario, failure, failAt), "")
          << scenario.name << ": " << kCallNames[failure.call] << " number " << failAt << " with "
          << (failure.error == kShort ? "one byte" : strerror(failure.error));
    }
  }
  EXPECT_GT(strikes, 10);
}

INSTANTIATE_TEST_SUITE_P(Every, SyscallTorture, testing::Range<std::size_t>(0, 24));

}  // namespace
