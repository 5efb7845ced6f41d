#include "step/interruption.h"

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

bool isTaken(int signal) {
  struct sigaction now = {};
  sigaction(signal, nullptr, &now);
  return signal != SIGHUP || now.sa_handler != SIG_IGN;
}

Interruption::Interruption() {
  cameSignal = false;
  struct sigaction action = {};
  action.sa_handler = noteSignal;
  action.sa_flags = SA_RESTART;
  for (std::size_t i = 0; i < old_.size(); ++i) {
    sigaction(kCancelSignals[i], isTaken(kCancelSignals[i]) ? &action : nullptr, &old_[i]);
  }
}

Interruption::~Interruption() {
  for (std::size_t i = 0; i < old_.size(); ++i) {
    sigaction(kCancelSignals[i], &old_[i], nullptr);
  }
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
