// The outcomes of a step.
#ifndef ARVL_HOST_STEP_OUTCOME_H_
#define ARVL_HOST_STEP_OUTCOME_H_

#include "step/exit_code.h"

namespace arvl_host {

enum class Outcome {
  kSuccess,
  kFailure,  // reported by the plug-in
  kProtocolViolation,
  kTimeout,
  kDied,         // crashed, or ended without a completion
  kInterrupted,  // the host received SIGINT, SIGTERM or SIGHUP
};

// Returns the outcome in words: "success", "protocol violation".
const char *outcomeText(Outcome outcome);

ExitCode exitCodeOf(Outcome outcome);

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_OUTCOME_H_
