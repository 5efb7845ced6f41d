// Runs long tasks on a background thread and signals completion on a descriptor.
#ifndef ARVL_HOST_STEP_WORKER_H_
#define ARVL_HOST_STEP_WORKER_H_

#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>

#include "files/unique_fd.h"

namespace arvl_host {

// Owns one thread, which blocks all signals and runs one task at a time. The results of a task may be read
// after finish().
class Worker {
 public:
  // Throws std::runtime_error, or std::system_error.
  Worker();
  ~Worker();  // waits for the task
  Worker(const Worker &) = delete;
  Worker &operator=(const Worker &) = delete;

  void start(std::function<void()> task);
  // Returns a descriptor that is readable when the task is done.
  int doneFd() const { return done_.get(); }
  // Must be called when the task is done, before the next one. Rethrows the exception of the task.
  void finish();

 private:
  void run();

  UniqueFd done_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::function<void()> task_;  // empty: the thread waits
  std::exception_ptr failure_;
  bool isOver_ = false;
  std::thread thread_;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_WORKER_H_
