#include "interruption.h"

#include <atomic>

namespace arvl_host {

namespace {

// Set on whichever thread the signal finds.
std::atomic<bool> cameSignal{false};
static_assert(std::atomic<bool>::is_always_lock_free, "to be set by a signal handler");

extern "C" void noteSignal(int) {
  cameSignal = true;
}

}  // namespace

Interruption::Interruption() {
  cameSignal = false;
  struct sigaction action = {};
  action.sa_handler = noteSignal;
  action.sa_flags = SA_RESTART;
  sigaction(SIGINT, &action, &oldInterrupt_);
  sigaction(SIGTERM, &action, &oldTerminate_);
}

Interruption::~Interruption() {
  sigaction(SIGINT, &oldInterrupt_, nullptr);
  sigaction(SIGTERM, &oldTerminate_, nullptr);
}

void Interruption::check() const {
  if (cameSignal) {
    throw Interrupted();
  }
}

void Interruption::forward() const {
  if (cameSignal.exchange(false)) {
    raise(SIGINT);
  }
}

}  // namespace arvl_host
