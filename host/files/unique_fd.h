// Owns a file descriptor and closes it.
#ifndef ARVL_HOST_FILES_UNIQUE_FD_H_
#define ARVL_HOST_FILES_UNIQUE_FD_H_

#include <unistd.h>

#include <utility>

namespace arvl_host {

class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(UniqueFd &&other) noexcept : fd_(other.release()) {}
  UniqueFd &operator=(UniqueFd &&other) noexcept {
    reset(other.release());
    return *this;
  }
  ~UniqueFd() { reset(); }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  int release() { return std::exchange(fd_, -1); }
  void reset(int fd = -1) {
    if (fd_ >= 0) {
      close(fd_);
    }
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_FILES_UNIQUE_FD_H_
