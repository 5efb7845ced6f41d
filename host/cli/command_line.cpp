#include "cli/command_line.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cli/help_formatter.h"
#include "cli/subcommands.h"
#include "text/utf8.h"

namespace arvl_host {

namespace {

constexpr const char *kFooter =
    "\"arvl-host COMMAND --help\" shows the options and exit codes of a command.\n"
    "Environment:\n"
    "  NO_COLOR  disables colour if it is not empty\n"
    "  TERM      \"dumb\" disables colour and the progress line\n"
    "  TMPDIR    directory for temporary file lists that do not fit into memory\n";

using AddSubcommand = std::function<int()> (*)(CLI::App &);

// In the order of the help.
constexpr AddSubcommand kSubcommands[] = {
    addBackupCommand, addRestoreCommand, addListCommand,  addVerifyCommand,
    addPruneCommand,  addStepCommand,    addTraceCommand,
};

// Returns the error of a command line without a command. words: those that no option took.
std::string withoutCommand(const std::vector<std::string> &words) {
  if (words.empty()) {
    return "a command is required";
  }
  const char *kind = words.front()[0] == '-' ? "option" : "command";
  return std::string("there is no ") + kind + " \"" + visibleText(words.front()) + "\"";
}

}  // namespace

CommandLine::CommandLine()
    : app_("Runs application back-up plug-ins as the framework would.", "arvl-host") {
  app_.formatter(std::make_shared<HelpFormatter>());  // subcommands inherit it
  app_.set_version_flag("--version", "arvl-host " ARVL_VERSION);
  app_.require_subcommand(1);
  app_.footer(kFooter);
  for (const AddSubcommand add : kSubcommands) {
    addSubcommand(add);
  }
}

void CommandLine::addSubcommand(std::function<int()> (*add)(CLI::App &)) {
  std::function<int()> command = add(app_);
  CLI::App *added = app_.get_subcommands({}).back();
  added->group("Commands");
  commands_[added] = std::move(command);
}

void CommandLine::parse(int argc, const char *const *argv) {
  try {
    app_.parse(argc, argv);
  } catch (const CLI::RequiredError &) {
    if (!app_.get_subcommands().empty()) {
      throw;
    }
    throw CLI::ParseError(withoutCommand(app_.remaining()), CLI::ExitCodes::RequiredError);
  }
}

int CommandLine::run() const {
  return commands_.at(app_.get_subcommands().front())();
}

}  // namespace arvl_host
