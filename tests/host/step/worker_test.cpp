#include "step/worker.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <future>
#include <stdexcept>
#include <thread>

namespace {

using arvl_host::Worker;

bool isDone(const Worker &worker, int timeout) {
  pollfd fd = {worker.doneFd(), POLLIN, 0};
  return poll(&fd, 1, timeout) == 1;
}

TEST(Worker, RunsOneTaskAfterTheOther) {
  int sum = 0;
  Worker worker;
  for (int i = 1; i <= 100; ++i) {
    EXPECT_FALSE(isDone(worker, 0));
    worker.start([&sum, i] { sum += i; });
    ASSERT_TRUE(isDone(worker, -1));
    worker.finish();
  }
  EXPECT_EQ(sum, 5050);
}

TEST(Worker, RethrowsTheExceptionOfATask) {
  Worker worker;
  worker.start([] { throw std::runtime_error("in vain"); });
  ASSERT_TRUE(isDone(worker, -1));
  try {
    worker.finish();
    FAIL();
  } catch (const std::runtime_error &error) {
    EXPECT_STREQ(error.what(), "in vain");
  }
  worker.start([] {});
  ASSERT_TRUE(isDone(worker, -1));
  EXPECT_NO_THROW(worker.finish());
}

TEST(Worker, WaitsForItsTaskWhenDestroyed) {
  std::promise<void> begun;
  std::promise<void> release;
  bool isOver = false;
  std::thread releaser;
  {
    Worker worker;
    worker.start([&] {
      begun.set_value();
      release.get_future().wait();
      isOver = true;
    });
    begun.get_future().wait();
    releaser = std::thread([&] { release.set_value(); });
  }
  EXPECT_TRUE(isOver);
  releaser.join();
}

}  // namespace
