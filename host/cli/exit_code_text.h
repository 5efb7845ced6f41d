// The exit codes in words.
#ifndef ARVL_HOST_CLI_EXIT_CODE_TEXT_H_
#define ARVL_HOST_CLI_EXIT_CODE_TEXT_H_

#include <string>
#include <vector>

#include "step/exit_code.h"

namespace arvl_host {

// Returns the meaning of an exit code. docs/host.md explains the codes in more detail.
const char *exitCodeText(ExitCode code);

// Returns the exit codes as lines for the footer of a command's help.
std::string exitCodeHelp(const std::vector<ExitCode> &codes);

// Returns these lines for a command that runs steps of a plug-in.
std::string pluginExitCodeHelp();

}  // namespace arvl_host

#endif  // ARVL_HOST_CLI_EXIT_CODE_TEXT_H_
