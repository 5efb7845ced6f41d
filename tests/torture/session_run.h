// Runs one scenario against a framework end that sends exactly the given bytes, in a thread that
// allocates nothing.
#ifndef ARVL_TESTS_TORTURE_SESSION_RUN_H_
#define ARVL_TESTS_TORTURE_SESSION_RUN_H_

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "torture/scenarios.h"

namespace arvl_test {

// How the framework's end misbehaves, and at which byte.
struct Misdeed {
  enum Kind {
    kNone,
    kSplit,      // waits until the bytes have been read, then sends the rest
    kClose,      // closes at once
    kHalfClose,  // ends its own direction only
    kReset,      // has the connection reset (TCP)
    kSilence,    // waits until the bytes have been read, then closes
  };

  Kind kind = kNone;
  std::size_t exchange = 0;  // counted from 0
  bool inRequest = false;  // after reading that many bytes of the request, or writing of the answer
  std::size_t bytes = 0;
};

struct SessionReport {
  bool initialized = false;
  bool threw = false;  // std::bad_alloc or an exception of JsonCpp's
  Result result = Result::kFailed;
  int errorNumber = 0;
  int logLines = 0;
  std::string received;                   // the bytes after the last answer: the completion
  std::vector<std::size_t> requestSizes;  // of the whole frames that were read
};

// Calls `begin` before the Agent's construction and `end` after its destruction. Between the two calls,
// only the library and the scenario allocate memory.
SessionReport runSession(const Scenario &scenario, const Misdeed &misdeed,
                         const std::function<void()> &begin, const std::function<void()> &end);

// Runs the body in a process of its own, for at most so many seconds. Returns an empty string if it ends
// with status 0, otherwise the last line that it wrote to stderr, a signal, or "hangs".
std::string inProcess(unsigned seconds, const std::function<int()> &body);

}  // namespace arvl_test

#endif  // ARVL_TESTS_TORTURE_SESSION_RUN_H_
