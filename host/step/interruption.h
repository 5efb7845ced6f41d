// Receives the signals that interrupt a job, from its start to its end.
#ifndef ARVL_HOST_STEP_INTERRUPTION_H_
#define ARVL_HOST_STEP_INTERRUPTION_H_

#include <signal.h>

#include <array>
#include <cstdint>
#include <exception>

#include "files/unique_fd.h"

namespace arvl_host {

struct Interrupted : std::exception {
  const char *what() const noexcept override { return "interrupted"; }
};

// Receives SIGINT, SIGTERM and SIGHUP as long as it exists, and restores the previous handlers. Does not
// receive a SIGHUP that is ignored, as under nohup. Leaves signal masks alone. Only one may exist in a
// process at a time.
class Interruption {
 public:
  // Throws std::runtime_error if there is no descriptor left.
  Interruption();
  ~Interruption();
  Interruption(const Interruption &) = delete;
  Interruption &operator=(const Interruption &) = delete;

  // Throws Interrupted if a signal has ever arrived, also after take() has counted it.
  void check() const;

  // Returns a descriptor for an event loop: it is readable while there are signals to take.
  int fd() const { return arrivals_.get(); }
  // Returns the number of signals that have arrived since the last call. Does not block.
  std::uint64_t take();

 private:
  static constexpr std::array<int, 3> kSignals = {SIGINT, SIGTERM, SIGHUP};

  UniqueFd arrivals_;  // an event counter
  std::array<struct sigaction, kSignals.size()> previous_;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_INTERRUPTION_H_
