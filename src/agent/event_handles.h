// Owners of libevent's objects.
#ifndef ZARN_AGENT_EVENT_HANDLES_H_
#define ZARN_AGENT_EVENT_HANDLES_H_

#include <event2/bufferevent.h>
#include <event2/event.h>

#include <memory>

namespace ZARN {
namespace ARVLAPP {

struct EventFree {
  void operator()(event_base *base) const { event_base_free(base); }
  void operator()(bufferevent *connection) const { bufferevent_free(connection); }
};

using EventBase = std::unique_ptr<event_base, EventFree>;
// Must be destroyed before its event base.
using Bufferevent = std::unique_ptr<bufferevent, EventFree>;

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_AGENT_EVENT_HANDLES_H_
