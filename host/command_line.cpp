#include "command_line.h"

#include <CLI/CLI.hpp>
#include <utility>

#include "step_command.h"
#include "trace_command.h"

namespace arvl_host {

CommandLine::CommandLine()
    : app_("Runs application back-up plug-ins as the framework would.", "arvl-host") {
  app_.set_version_flag("--version", "arvl-host " ARVL_VERSION);
  app_.require_subcommand(1);
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
