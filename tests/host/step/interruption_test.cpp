#include "step/interruption.h"

#include <gtest/gtest.h>
#include <poll.h>

namespace {

using namespace arvl_host;

bool isReadable(int fd) {
  pollfd watched = {fd, POLLIN, 0};
  return poll(&watched, 1, 0) == 1;
}

void (*handlerOf(int signal))(int) {
  struct sigaction current = {};
  sigaction(signal, nullptr, &current);
  return current.sa_handler;
}

bool isBlocked(int signal) {
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  return sigismember(&mask, signal) == 1;
}

TEST(Interruption, HasNothingToTakeBeforeASignal) {
  Interruption interruption;
  EXPECT_FALSE(isReadable(interruption.fd()));
  EXPECT_EQ(interruption.take(), 0u);
  EXPECT_NO_THROW(interruption.check());
}

TEST(Interruption, CountsTheSignalsForTheEventLoop) {
  Interruption interruption;
  raise(SIGINT);
  raise(SIGTERM);
  raise(SIGHUP);
  EXPECT_TRUE(isReadable(interruption.fd()));
  EXPECT_EQ(interruption.take(), 3u);
  EXPECT_FALSE(isReadable(interruption.fd()));
  EXPECT_EQ(interruption.take(), 0u);
}

TEST(Interruption, IsCheckedBetweenStepsAlsoAfterAStepHasTakenTheSignal) {
  Interruption interruption;
  raise(SIGTERM);
  EXPECT_THROW(interruption.check(), Interrupted);
  EXPECT_EQ(interruption.take(), 1u);
  EXPECT_THROW(interruption.check(), Interrupted);
}

TEST(Interruption, DoesNotInheritTheSignalsOfTheOneBefore) {
  {
    const Interruption before;
    raise(SIGINT);
  }
  Interruption interruption;
  EXPECT_EQ(interruption.take(), 0u);
  EXPECT_NO_THROW(interruption.check());
}

TEST(Interruption, LeavesAnIgnoredHangUpIgnored) {
  const auto previous = signal(SIGHUP, SIG_IGN);
  {
    Interruption interruption;
    raise(SIGHUP);
    EXPECT_EQ(interruption.take(), 0u);
    EXPECT_EQ(handlerOf(SIGHUP), SIG_IGN);
  }
  EXPECT_EQ(handlerOf(SIGHUP), SIG_IGN);
  signal(SIGHUP, previous);
}

TEST(Interruption, RestoresTheHandlersAndLeavesTheMaskAlone) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    const auto previous = handlerOf(number);
    {
      const Interruption interruption;
      EXPECT_NE(handlerOf(number), previous);
      EXPECT_FALSE(isBlocked(number));
    }
    EXPECT_EQ(handlerOf(number), previous);
  }
}

}  // namespace
