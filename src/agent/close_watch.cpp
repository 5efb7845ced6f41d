#include "agent/close_watch.h"

#include <sys/epoll.h>
#include <unistd.h>

namespace ZARN {
namespace ARVLAPP {

bool CloseWatch::start(event_base *base, int socketFd, event_callback_fn onClose, void *argument) {
  epollFd_ = epoll_create1(EPOLL_CLOEXEC);
  if (epollFd_ != -1) {
    epoll_event closing = {};
    closing.events = EPOLLRDHUP;  // errors and hang-ups are always reported
    event_ = event_new(base, epollFd_, EV_READ, onClose, argument);
    if (event_ != nullptr && epoll_ctl(epollFd_, EPOLL_CTL_ADD, socketFd, &closing) == 0 &&
        event_add(event_, nullptr) == 0) {
      return true;
    }
  }
  stop();
  return false;
}

void CloseWatch::stop() {
  if (event_ != nullptr) {
    event_free(event_);
    event_ = nullptr;
  }
  if (epollFd_ != -1) {
    close(epollFd_);
    epollFd_ = -1;
  }
}

bool CloseWatch::isError() const {
  epoll_event state = {};
  epoll_wait(epollFd_, &state, 1, 0);
  return (state.events & EPOLLERR) != 0;
}

}  // namespace ARVLAPP
}  // namespace ZARN
