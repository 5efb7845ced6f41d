#include "step/worker.h"

#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

namespace arvl_host {

Worker::Worker() : done_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!done_) {
    throw std::runtime_error(std::string("cannot create an event counter: ") +
                             std::strerror(errno));
  }
  sigset_t all;
  sigset_t mask;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &mask);  // the thread inherits it
  thread_ = std::thread([this] { run(); });
  pthread_sigmask(SIG_SETMASK, &mask, nullptr);
}

Worker::~Worker() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    isOver_ = true;
  }
  wake_.notify_one();
  thread_.join();
}

void Worker::start(std::function<void()> task) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    task_ = std::move(task);
  }
  wake_.notify_one();
}

void Worker::finish() {
  eventfd_t count = 0;
  eventfd_read(done_.get(), &count);
  const std::lock_guard<std::mutex> lock(mutex_);
  if (failure_) {
    std::rethrow_exception(std::exchange(failure_, nullptr));
  }
}

void Worker::run() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    wake_.wait(lock, [this] { return task_ != nullptr || isOver_; });
    if (isOver_) {
      return;
    }
    const std::function<void()> task = std::exchange(task_, nullptr);
    lock.unlock();
    std::exception_ptr failure;
    try {
      task();
    } catch (...) {
      failure = std::current_exception();
    }
    lock.lock();
    failure_ = failure;
    eventfd_write(done_.get(), 1);
  }
}

}  // namespace arvl_host
