#include "step/outcome.h"

namespace arvl_host {

const char *outcomeText(Outcome outcome) {
  switch (outcome) {
    case Outcome::kSuccess:
      return "success";
    case Outcome::kFailure:
      return "failure";
    case Outcome::kProtocolViolation:
      return "protocol violation";
    case Outcome::kTimeout:
      return "time-out";
    case Outcome::kDied:
      return "no completion";
    case Outcome::kInterrupted:
      return "interrupted";
  }
  return "";
}

ExitCode exitCodeOf(Outcome outcome) {
  switch (outcome) {
    case Outcome::kSuccess:
      return kExitSuccess;
    case Outcome::kFailure:
      return kExitFailure;
    case Outcome::kProtocolViolation:
      return kExitProtocolViolation;
    case Outcome::kTimeout:
      return kExitTimeout;
    case Outcome::kDied:
      return kExitDied;
    case Outcome::kInterrupted:
      return kExitInterrupted;
  }
  return kExitHostError;
}

}  // namespace arvl_host
