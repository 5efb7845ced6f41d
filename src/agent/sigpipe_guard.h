// Keeps SIGPIPE from a process that writes to a socket whose peer may be gone.
#ifndef ZARN_AGENT_SIGPIPE_GUARD_H_
#define ZARN_AGENT_SIGPIPE_GUARD_H_

#include <pthread.h>
#include <signal.h>

#include <cerrno>

namespace ZARN {
namespace ARVLAPP {

// While a guard lives, SIGPIPE is held back on this thread; one that was caused meanwhile is taken out
// of the queue at its end. The process-wide disposition is never touched; the thread's mask and a
// signal that was pending before are afterwards as they were.
class SigpipeGuard {
 public:
  SigpipeGuard() {
    sigemptyset(&sigpipe_);
    sigaddset(&sigpipe_, SIGPIPE);

    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    wasPending_ = sigismember(&pending, SIGPIPE) == 1;

    pthread_sigmask(SIG_BLOCK, &sigpipe_, &mask_);
  }

  ~SigpipeGuard() {
    if (!wasPending_) {
      const struct timespec noWait = {0, 0};
      int taken = 0;
      do {
        taken = sigtimedwait(&sigpipe_, nullptr, &noWait);
      } while (taken == -1 && errno == EINTR);  // GCOVR_EXCL_BR_LINE: a signal in between
    }
    pthread_sigmask(SIG_SETMASK, &mask_, nullptr);
  }

  SigpipeGuard(const SigpipeGuard &) = delete;
  SigpipeGuard &operator=(const SigpipeGuard &) = delete;

 private:
  sigset_t sigpipe_;
  sigset_t mask_;
  bool wasPending_ = false;
};

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_AGENT_SIGPIPE_GUARD_H_
