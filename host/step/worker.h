// Does a task that may take long beside an event loop, which hears of its end through a descriptor.
#ifndef ARVL_HOST_STEP_WORKER_H_
#define ARVL_HOST_STEP_WORKER_H_

#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>

#include "files/unique_fd.h"

namespace arvl_host {

// One task at a time, on one thread, which takes no signals. What the task writes may be read after
// finish().
class Worker {
 public:
  // Throws std::runtime_error, or std::system_error.
  Worker();
  ~Worker();  // waits for the task
  Worker(const Worker &) = delete;
  Worker &operator=(const Worker &) = delete;

  void start(std::function<void()> task);
  // Readable once the task is done.
  int doneFd() const { return done_.get(); }
  // To be called then, before the next task; throws what the task threw.
  void finish();

 private:
  void run();

  UniqueFd done_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::function<void()> task_;  // none: wait for one
  std::exception_ptr failure_;
  bool isOver_ = false;
  std::thread thread_;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_WORKER_H_
