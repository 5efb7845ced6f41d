// The exit codes of arvl-host. The help of each command and docs/host.md list them.
#ifndef ARVL_HOST_STEP_EXIT_CODE_H_
#define ARVL_HOST_STEP_EXIT_CODE_H_

namespace arvl_host {

enum ExitCode : int {
  kExitSuccess = 0,
  kExitFailure = 1,    // reported by the plug-in, or no valid backup
  kExitHostError = 2,  // wrong usage, or an error of the host
  kExitProtocolViolation = 3,
  kExitTimeout = 4,
  kExitDied = 5,
  kExitInterrupted = 130,  // 128 + SIGINT, as in a shell
};

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_EXIT_CODE_H_
