// One step of a job: a plug-in is started, its packets are judged and answered, and its end is
// awaited, whatever it does.
#ifndef ARVL_HOST_STEP_STEP_RUNNER_H_
#define ARVL_HOST_STEP_STEP_RUNNER_H_

#include <json/value.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "trace/trace_record.h"
#include "zarn/arvlapp/protocol_util.h"

namespace arvl_host {

struct StepRequest {
  std::string step;
  std::string executable;
  std::string frameworkVersion;
  std::chrono::milliseconds timeout;  // of the whole step
  std::chrono::milliseconds grace;    // between closing the socket, TERM and KILL
};

enum class Outcome {
  kSuccess,
  kFailure,  // as the plug-in reported it
  kProtocolViolation,
  kTimeout,
  kDied,         // crashed, or ended without a completion
  kInterrupted,  // SIGINT, SIGTERM or SIGHUP to the host
};

// Whether a packet takes a payload of this text.
bool fitsPacket(const std::string &payload);

// As the rule book prints it, or its number: "UPLOAD_REQUEST", "type 99".
std::string packetName(ZARN::ARVLAPP::PACKET_TYPE type);

// "success", "protocol violation"
const char *outcomeText(Outcome outcome);
int exitCodeOf(Outcome outcome);

struct StepResult {
  Outcome outcome = Outcome::kDied;
  std::string reason;              // in words, where there is more to say than the outcome
  std::vector<std::string> lines;  // of the rule book, for a protocol violation
  Json::Value completion;          // null if none came
  Json::Value refusedEstimate;     // one that does not fit the 32 bits of the protocol; else null
  double seconds = 0;
  int packets = 0;  // in both directions
};

// Answers requests that the rule book has found valid, one at a time; those that touch files on a
// thread of their own.
class RequestServer {
 public:
  virtual ~RequestServer() = default;
  // The payload of the response; nothing if the request is not served at all.
  virtual std::optional<Json::Value> answer(ZARN::ARVLAPP::PACKET_TYPE request,
                                            const Json::Value &payload) = 0;
  // The step ends: an answer that is under way is not waited for. Called beside it.
  virtual void cancel() = 0;
};

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

// Blocks until the plug-in and its process group are gone. SIGINT, SIGTERM and SIGHUP cancel the plug-in by
// closing its socket; a second one kills it. Throws std::runtime_error if it could not be started.
StepResult runStep(const StepRequest &request, RequestServer &server, StepListener &listener);

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_STEP_RUNNER_H_
