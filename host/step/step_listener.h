// Sees what happens during a step.
#ifndef ARVL_HOST_STEP_STEP_LISTENER_H_
#define ARVL_HOST_STEP_STEP_LISTENER_H_

#include <json/forwards.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "step/log_source.h"
#include "step/outcome.h"
#include "step/side.h"
#include "step/step_request.h"
#include "step/verdict.h"
#include "zarn/arvlapp/protocol_util.h"

namespace arvl_host {

// What a plug-in says beside its packets.
struct PluginLine {
  LogSource source;
  int priority;  // of a syslog line, LOG_EMERG to LOG_DEBUG
  std::string_view text;
};

// Sees what happens, as it happens.
class StepListener {
 public:
  virtual ~StepListener() = default;
  virtual void onStart(const StepRequest &request, std::int64_t pid) = 0;
  virtual void onLine(const PluginLine &line) = 0;
  virtual void onPacket(Side from, std::uint16_t type, std::string_view payload,
                        const Verdict &verdict) = 0;
  virtual void onGarbage(Side from, std::string_view bytes, const std::string &reason) = 0;
  // A request that the rule book found valid is answered; with a failure, if there is a reason of one.
  virtual void onAnswer(ZARN::ARVLAPP::PACKET_TYPE /*request*/, const Json::Value & /*payload*/,
                        const std::optional<std::string> & /*denial*/) {}
  // The step ends early: the plug-in is being canceled.
  virtual void onCancel(Outcome /*why*/) {}
  // Ten times a second.
  virtual void onTick() {}
};

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_STEP_LISTENER_H_
