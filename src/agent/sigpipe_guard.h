// Protects a process from SIGPIPE while it writes to a socket whose peer may be gone.
#ifndef ZARN_AGENT_SIGPIPE_GUARD_H_
#define ZARN_AGENT_SIGPIPE_GUARD_H_

#include <pthread.h>
#include <signal.h>

namespace ZARN {
namespace ARVLAPP {

// Blocks SIGPIPE on this thread during its lifetime and removes a SIGPIPE that became pending
// meanwhile. Never changes the disposition. Restores the thread's mask, and keeps a SIGPIPE that was
// pending before.
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
      const struct timespec noWait = {0, 0};  // so that no signal can interrupt it
      sigtimedwait(&sigpipe_, nullptr, &noWait);
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
