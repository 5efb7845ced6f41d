#include "interruption.h"

namespace arvl_host {

namespace {

volatile sig_atomic_t cameSignal = 0;

extern "C" void noteSignal(int) {
  cameSignal = 1;
}

}  // namespace

Interruption::Interruption() {
  cameSignal = 0;
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
  if (cameSignal != 0) {
    throw Interrupted();
  }
}

void Interruption::forward() const {
  if (cameSignal != 0) {
    cameSignal = 0;
    raise(SIGINT);
  }
}

}  // namespace arvl_host
