// Watches for the end of a connection while nobody reads from it. Logs nothing.
#ifndef ZARN_AGENT_CLOSE_WATCH_H_
#define ZARN_AGENT_CLOSE_WATCH_H_

#include <event2/event.h>

namespace ZARN {
namespace ARVLAPP {

// Notices that the peer has closed the connection or its sending side, or that the connection has
// failed, even if received data is unread. Owns one descriptor while it watches.
//
// Uses its own epoll instance, which the event base watches. An EV_CLOSED event on the socket would
// notice a close but not an error: libevent would not call it, and the loop would spin.
class CloseWatch {
 public:
  CloseWatch() = default;
  ~CloseWatch() { stop(); }
  CloseWatch(const CloseWatch &) = delete;
  CloseWatch &operator=(const CloseWatch &) = delete;

  // Makes the loop of the base call onClose(descriptor, EV_READ, argument) once the connection has
  // ended. Returns false if it is out of descriptors or memory, and then watches nothing.
  bool start(event_base *base, int socketFd, event_callback_fn onClose, void *argument);

  // Stops watching. Must be called before the event base is freed.
  void stop();

  // Returns true if the connection has failed, false if it was closed.
  bool isError() const;

 private:
  int epollFd_ = -1;
  event *event_ = nullptr;
};

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_AGENT_CLOSE_WATCH_H_
