#include "command_line.h"

#include <CLI/CLI.hpp>
#include <utility>

#include "job_commands.h"
#include "step_command.h"
#include "store_commands.h"
#include "trace_command.h"

namespace arvl_host {

namespace {

constexpr const char *kFooter =
    "\"arvl-host COMMAND --help\" tells the options and exit codes of a command.\n"
    "Environment:\n"
    "  NO_COLOR  if it is not empty, nothing is coloured\n"
    "  TERM      \"dumb\": no colour, and no line that is drawn again\n"
    "  TMPDIR    where the list of a job's files goes that does not fit the memory\n";

}  // namespace

CommandLine::CommandLine()
    : app_("Runs application back-up plug-ins as the framework would.", "arvl-host") {
  app_.set_version_flag("--version", "arvl-host " ARVL_VERSION);
  app_.require_subcommand(1);
  app_.footer(kFooter);
  add(addBackupCommand);
  add(addRestoreCommand);
  add(addListCommand);
  add(addVerifyCommand);
  add(addPruneCommand);
  add(addStepCommand);
  add(addTraceCommand);
}

void CommandLine::add(std::function<int()> (*addCommand)(CLI::App &)) {
  std::function<int()> command = addCommand(app_);
  commands_[app_.get_subcommands({}).back()] = std::move(command);
}

int CommandLine::run() const {
  return commands_.at(app_.get_subcommands().front())();
}

}  // namespace arvl_host
