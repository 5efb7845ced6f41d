// Fails every allocation of every scenario, by operator new or by libevent, in turn: alone, and with all
// later ones. Nothing may crash, hang or leak, and a call that is out of memory must not report success.

#include <dirent.h>
#include <event2/event.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include <cerrno>
#include <cstddef>
#include <new>
#include <string>

#include "torture/session_run.h"

namespace {

// Counts and fails the allocations of the plug-in's thread while it is armed.
struct Allocations {
  bool armed = false;
  bool sticky = false;
  long failAt = 0;  // counted from 1; 0 lets all succeed
  long count = 0;
  long live = 0;

  bool fails() {
    if (!armed) {
      return false;
    }
    ++count;
    return failAt != 0 && (sticky ? count >= failAt : count == failAt);
  }
};

thread_local Allocations allocations;

void *allocate(std::size_t size) {
  if (allocations.fails()) {
    errno = ENOMEM;
    return nullptr;
  }
  void *memory = std::malloc(size != 0 ? size : 1);
  ++allocations.live;
  return memory;
}

// Not inlined into operator delete, where the compiler would miss its operator new.
__attribute__((noinline)) void release(void *memory) {
  if (memory != nullptr) {
    --allocations.live;
    std::free(memory);
  }
}

void *reallocate(void *memory, std::size_t size) {
  if (memory == nullptr) {
    return allocate(size);
  }
  if (allocations.fails()) {
    errno = ENOMEM;
    return nullptr;
  }
  return std::realloc(memory, size);
}

// Runs before libevent allocates anything.
const bool hooked = (event_set_mem_functions(allocate, reallocate, release), true);

}  // namespace

void *operator new(std::size_t size) {
  void *memory = allocate(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

void operator delete(void *memory) noexcept {
  release(memory);
}

void operator delete(void *memory, std::size_t) noexcept {
  release(memory);
}

namespace {

using namespace arvl_test;

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
  long count = 0;
  long leaked = 0;
};

Outcome runWithFailure(const Scenario &scenario, long failAt, bool sticky) {
  Outcome outcome;
  long before = 0;
  outcome.report = runSession(
      scenario, Misdeed(),
      [&] {
        allocations.failAt = failAt;
        allocations.sticky = sticky;
        allocations.count = 0;
        before = allocations.live;
        allocations.armed = true;
      },
      [&] {
        allocations.armed = false;
        outcome.count = allocations.count;
        outcome.leaked = allocations.live - before;
      });
  return outcome;
}

// Returns the fault of a run that was out of memory, or nullptr.
const char *findFault(const Scenario &scenario, const Outcome &outcome, int descriptorsMore) {
  const SessionReport &report = outcome.report;
  if (report.result == Result::kWrong) {
    return "a call claimed success with a wrong value";
  }
  if (!report.received.empty() && report.received != scenario.completion &&
      report.received.find("\"success\":true") != std::string::npos) {
    return "the completion claims success";
  }
  const bool complete =
      report.result == Result::kAsExpected && report.received == scenario.completion;
  if (!complete && !report.threw && report.logLines == 0) {
    return "a failure without an exception and without a log line";
  }
  if (outcome.leaked != 0) {
    return "memory leaks";
  }
  if (descriptorsMore != 0) {
    return "a descriptor leaks or was closed twice";
  }
  return nullptr;
}

class AllocationTorture : public testing::TestWithParam<std::size_t> {
 protected:
  const Scenario &scenario() const { return scenarios()[GetParam()]; }

  // Fails each in turn, in one process, so that a hang or crash ends only that process.
  std::string failEachInTurn(bool sticky) {
    runWithFailure(scenario(), 0, false);  // makes the allocations that are kept for later runs
    const long count = runWithFailure(scenario(), 0, false).count;
    for (long failAt = 1; failAt <= count; ++failAt) {
      const std::string fault = inProcess(20, [&] {
        const int before = openDescriptors();
        const Outcome outcome = runWithFailure(scenario(), failAt, sticky);
        const char *found = findFault(scenario(), outcome, openDescriptors() - before);
        if (found != nullptr) {
          dprintf(STDERR_FILENO, "%s", found);
        }
        return found != nullptr ? 1 : 0;
      });
      if (!fault.empty()) {
        return "allocation " + std::to_string(failAt) + " of " + std::to_string(count) + ": " +
               fault;
      }
    }
    return count > 0 ? "" : "nothing was allocated";
  }
};

TEST_P(AllocationTorture, EndsAsExpectedAndLeaksNothingWhenNothingFails) {
  const int before = openDescriptors();
  runWithFailure(scenario(), 0, false);
  const Outcome outcome = runWithFailure(scenario(), 0, false);
  EXPECT_EQ(outcome.report.result, Result::kAsExpected);
  EXPECT_EQ(outcome.report.received, scenario().completion);
  EXPECT_EQ(outcome.leaked, 0);
  EXPECT_EQ(openDescriptors(), before);
}

TEST_P(AllocationTorture, SurvivesOneFailedAllocation) {
  EXPECT_EQ(failEachInTurn(false), "") << scenario().name;
}

TEST_P(AllocationTorture, SurvivesFailureOfAllLaterAllocations) {
  EXPECT_EQ(failEachInTurn(true), "") << scenario().name;
}

INSTANTIATE_TEST_SUITE_P(Every, AllocationTorture, testing::Range<std::size_t>(0, 24));

TEST(AllocationTortureScenarios, AreAllRun) {
  EXPECT_EQ(scenarios().size(), 24u);
}

}  // namespace
