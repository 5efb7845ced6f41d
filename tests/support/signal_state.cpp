#include "support/signal_state.h"

#include <pthread.h>
#include <signal.h>

namespace arvl_test {

namespace {

std::string describe(int number, const sigset_t &mask, const sigset_t &pending) {
  struct sigaction action = {};
  if (sigaction(number, nullptr, &action) != 0) {
    return "";  // the C library's own
  }
  std::string text;
  if (action.sa_handler == SIG_IGN) {
    text += ", ignored";
  } else if (action.sa_handler != SIG_DFL) {
    text += ", handled with flags " + std::to_string(action.sa_flags);
  }
  text += sigismember(&mask, number) == 1 ? ", blocked" : "";
  text += sigismember(&pending, number) == 1 ? ", pending" : "";
  return text.empty() ? "" : std::to_string(number) + ":" + text.substr(1) + "\n";
}

}  // namespace

std::string describeSignals() {
  sigset_t mask;
  sigset_t pending;
  sigemptyset(&mask);
  sigemptyset(&pending);
  pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  sigpending(&pending);

  std::string text;
  for (int number = 1; number <= SIGRTMAX; ++number) {
    text += describe(number, mask, pending);
  }
  return text;
}

}  // namespace arvl_test
