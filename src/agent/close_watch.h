// Watches a connection for its end while nobody reads from it.
#ifndef ZARN_AGENT_CLOSE_WATCH_H_
#define ZARN_AGENT_CLOSE_WATCH_H_

#include <event2/event.h>

namespace ZARN {
namespace ARVLAPP {

// Notices that the peer has closed the connection or its sending side, or that the connection has
// failed, although received data remains unread. Holds one descriptor while it watches.
//
// It has an epoll instance of its own, which the event base watches. An event for EV_CLOSED on the
// socket would do for a close, but on an error libevent reports reading and writing alone: the event
// would not fire, and the loop would spin.
class CloseWatch {
 public:
  CloseWatch() = default;
  ~CloseWatch() { stop(); }
  CloseWatch(const CloseWatch &) = delete;
  CloseWatch &operator=(const CloseWatch &) = delete;

  // Has the loop of the base call onClose(descriptor, EV_READ, argument) once the connection has ended.
  // Returns false when descriptors or memory run out; nothing is watched then.
  bool start(event_base *base, int socketFd, event_callback_fn onClose, void *argument);

  // Stops watching. Must precede the end of the event base.
  void stop();

  // Tells whether the connection failed, rather than was closed.
  bool isError() const;

 private:
  int epollFd_ = -1;
  event *event_ = nullptr;
};

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_AGENT_CLOSE_WATCH_H_
