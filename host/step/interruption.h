// Lets a job be interrupted between its steps as well as in them.
#ifndef ARVL_HOST_STEP_INTERRUPTION_H_
#define ARVL_HOST_STEP_INTERRUPTION_H_

#include <signal.h>

#include <array>
#include <exception>

namespace arvl_host {

// What cancels a job. The last is the terminal's end; who ignores it, as nohup does, goes on.
constexpr std::array<int, 3> kCancelSignals = {SIGINT, SIGTERM, SIGHUP};

// Whether the signal is to be taken.
bool isTaken(int signal);

struct Interrupted : std::exception {
  const char *what() const noexcept override { return "interrupted"; }
};

// While it lives, these signals are noted instead of ending the program. A step that runs meanwhile
// takes them itself. One at a time in a process.
class Interruption {
 public:
  Interruption();
  ~Interruption();
  Interruption(const Interruption &) = delete;
  Interruption &operator=(const Interruption &) = delete;

  // Throws Interrupted if one of the signals came.
  void check() const;
  // Hands a signal that came before a step took them itself on to the step.
  void forward() const;

 private:
  std::array<struct sigaction, kCancelSignals.size()> old_;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_INTERRUPTION_H_
