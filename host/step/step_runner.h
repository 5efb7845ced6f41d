// Runs one step of a job: starts a plug-in, validates and answers its packets, and waits for its end.
#ifndef ARVL_HOST_STEP_STEP_RUNNER_H_
#define ARVL_HOST_STEP_STEP_RUNNER_H_

#include <json/value.h>

#include <string>
#include <vector>

#include "step/interruption.h"
#include "step/outcome.h"
#include "step/request_server.h"
#include "step/step_listener.h"
#include "step/step_request.h"

namespace arvl_host {

struct StepResult {
  Outcome outcome = Outcome::kDied;
  std::string reason;              // in words, if the outcome alone does not say it
  std::vector<std::string> lines;  // the rule book's lines about a protocol violation
  Json::Value completion;          // null if none came
  Json::Value refusedEstimate;     // an estimate beyond the protocol's 32 bits; else null
  double seconds = 0;
  int packets = 0;  // in both directions
};

// Blocks until the plug-in and its process group are gone. A signal of the interruption, even one that
// arrived before the call, cancels the plug-in by closing its socket; a second one kills it. Throws
// std::runtime_error if it could not be started.
StepResult runStep(const StepRequest &request, RequestServer &server, Interruption &interruption,
                   const StepListeners &listeners);

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_STEP_RUNNER_H_
