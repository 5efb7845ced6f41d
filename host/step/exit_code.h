// What arvl-host ends with. Each command's help and the README tell people of them.
#ifndef ARVL_HOST_STEP_EXIT_CODE_H_
#define ARVL_HOST_STEP_EXIT_CODE_H_

namespace arvl_host {

enum ExitCode : int {
  kExitSuccess = 0,
  kExitFailure = 1,    // the plug-in's word, or no sound backup
  kExitHostError = 2,  // wrong usage, or what the host could not do
  kExitProtocolViolation = 3,
  kExitTimeout = 4,
  kExitDied = 5,
  kExitInterrupted = 130,  // 128 and SIGINT's number, as of a shell
};

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_EXIT_CODE_H_
