#include "step/interruption.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace arvl_host {

namespace {

// The handler may run in any thread.
std::atomic<bool> hasArrived{false};
std::atomic<int> counter{-1};
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free,
              "a signal handler uses them");

extern "C" void noteSignal(int) {
  const int error = errno;
  const std::uint64_t one = 1;
  hasArrived = true;
  [[maybe_unused]] const ssize_t written = write(counter, &one, sizeof one);
  errno = error;
}

bool isIgnored(int signal) {
  struct sigaction current = {};
  sigaction(signal, nullptr, &current);
  return current.sa_handler == SIG_IGN;
}

}  // namespace

Interruption::Interruption() : arrivals_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!arrivals_) {
    throw std::runtime_error(std::string("cannot create an event counter: ") +
                             std::strerror(errno));
  }
  hasArrived = false;
  counter = arrivals_.get();
  struct sigaction action = {};
  action.sa_handler = noteSignal;
  action.sa_flags = SA_RESTART;
  for (std::size_t i = 0; i < kSignals.size(); ++i) {
    const bool isLeftIgnored = kSignals[i] == SIGHUP && isIgnored(SIGHUP);
    sigaction(kSignals[i], isLeftIgnored ? nullptr : &action, &previous_[i]);
  }
}

Interruption::~Interruption() {
  for (std::size_t i = 0; i < kSignals.size(); ++i) {
    sigaction(kSignals[i], &previous_[i], nullptr);
  }
}

void Interruption::check() const {
  if (hasArrived) {
    throw Interrupted();
  }
}

std::uint64_t Interruption::take() {
  eventfd_t count = 0;
  return eventfd_read(arrivals_.get(), &count) == 0 ? count : 0;
}

}  // namespace arvl_host
