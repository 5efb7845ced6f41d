// The parameters of a step.
#ifndef ARVL_HOST_STEP_STEP_REQUEST_H_
#define ARVL_HOST_STEP_STEP_REQUEST_H_

#include <chrono>
#include <string>

namespace arvl_host {

struct StepRequest {
  std::string step;
  std::string executable;
  std::string frameworkVersion;
  std::chrono::milliseconds timeout;  // of the whole step
  std::chrono::milliseconds grace;    // before SIGTERM, and again before SIGKILL
};

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_STEP_REQUEST_H_
