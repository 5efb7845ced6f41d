// Observers of a running step.
#ifndef ARVL_HOST_STEP_STEP_LISTENER_H_
#define ARVL_HOST_STEP_STEP_LISTENER_H_

#include <json/forwards.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "step/log_source.h"
#include "step/outcome.h"
#include "step/side.h"
#include "step/step_request.h"
#include "step/verdict.h"
#include "zarn/arvlapp/protocol_util.h"

namespace arvl_host {

// A line that a plug-in writes to stdout, stderr or syslog.
struct PluginLine {
  LogSource source;
  int priority;  // of a syslog line, LOG_EMERG to LOG_DEBUG
  std::string_view text;
};

// Is called during a step as things happen, on the thread of the event loop. Each function does nothing
// unless a listener overrides it. onPacket() is called on another thread if the payload has more than 64 KiB:
// until it returns, only onCancel() and onTick() are called, so only these two must be safe next to it.
class StepListener {
 public:
  virtual ~StepListener() = default;
  virtual void onStart(const StepRequest & /*request*/, std::int64_t /*pid*/) {}
  virtual void onLine(const PluginLine & /*line*/) {}
  virtual void onPacket(Side /*from*/, std::uint16_t /*type*/, std::string_view /*payload*/,
                        const Verdict & /*verdict*/) {}
  // Bytes that are not a packet, and the reason.
  virtual void onGarbage(Side /*from*/, std::string_view /*bytes*/,
                         const std::string & /*reason*/) {}
  // A valid request was answered. `denial` is the reason if it was refused.
  virtual void onAnswer(ZARN::ARVLAPP::PACKET_TYPE /*request*/, const Json::Value & /*payload*/,
                        const std::optional<std::string> & /*denial*/) {}
  // The step ends early: the plug-in is being canceled.
  virtual void onCancel(Outcome /*why*/) {}
  // Ten times a second.
  virtual void onTick() {}
};

// Called in this order.
using StepListeners = std::vector<StepListener *>;

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_STEP_LISTENER_H_
