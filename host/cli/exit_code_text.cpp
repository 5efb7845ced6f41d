#include "cli/exit_code_text.h"

#include <sstream>

namespace arvl_host {

// A meaning has at most 72 characters, so that its line fits a terminal.
const char *exitCodeText(ExitCode code) {
  switch (code) {
    case kExitSuccess:
      return "success";
    case kExitFailure:
      return "the plug-in reported failure; or verify found a problem, or no backup";
    case kExitHostError:
      return "wrong usage, or a step, store or file that cannot be used";
    case kExitProtocolViolation:
      return "the plug-in broke the protocol; the rule-book lines are shown";
    case kExitTimeout:
      return "timeout of a step, also if the plug-in completes but does not exit";
    case kExitDied:
      return "the plug-in crashed, even after its completion, or sent no completion";
    case kExitInterrupted:
      return "interrupted by Ctrl-C, SIGTERM or a hang-up of the terminal";
  }
  return "";
}

std::string exitCodeHelp(const std::vector<ExitCode> &codes) {
  std::ostringstream help;
  help << std::left << "Exit codes:\n";
  for (const ExitCode code : codes) {
    help << "  ";
    help.width(5);
    help << int{code} << exitCodeText(code) << '\n';
  }
  return help.str();
}

std::string pluginExitCodeHelp() {
  return exitCodeHelp({kExitSuccess, kExitFailure, kExitHostError, kExitProtocolViolation,
                       kExitTimeout, kExitDied, kExitInterrupted}) +
         "Ctrl-C cancels the plug-in by closing its socket; a second Ctrl-C kills it.\n";
}

}  // namespace arvl_host
