#include "cli/output_options.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <stdexcept>

#include "backup/report.h"
#include "step/exit_code.h"
#include "text/utf8.h"

namespace arvl_host {

namespace {

constexpr const char *kJsonOption = "--json";

Verbosity verbosityOf(const OutputOptions &options) {
  return options.quiet     ? Verbosity::kQuiet
         : options.verbose ? Verbosity::kVerbose
                           : Verbosity::kNormal;
}

}  // namespace

void addOutputOptions(CLI::App &command, OutputOptions &options) {
  command.add_flag(kJsonOption, options.json, "Print only a JSON report on standard output");
  command.add_flag("--quiet,-q", options.quiet, "Show warnings and errors only");
}

void addVerboseOption(CLI::App &command, OutputOptions &options) {
  command.add_flag("--verbose,-v", options.verbose, "Also show the processes that are run")
      ->excludes("--quiet");
}

OutputDisplay::OutputDisplay(const OutputOptions &options)
    : JobDisplay(options.json ? std::cerr : std::cout, std::cerr,
                 terminalOptions(options.json ? STDERR_FILENO : STDOUT_FILENO, STDERR_FILENO,
                                 verbosityOf(options))) {}

void writeReport(const OutputOptions &options, const Json::Value &json,
                 const std::vector<std::string> &lines) {
  if (options.json) {
    printJson(std::cout, json);
  } else if (!options.quiet) {
    for (const std::string &line : lines) {
      std::cout << visibleText(line) << '\n';
    }
  }
  if (!std::cout.flush()) {
    throw std::runtime_error("cannot write to standard output");
  }
}

void writeFailure(const std::vector<std::string> &words, const std::string &error) {
  const std::string option = kJsonOption;
  bool isWanted = false;
  std::string command;
  for (const std::string &word : words) {
    isWanted = isWanted || word == option || word.rfind(option + "=", 0) == 0;
    command = command.empty() && word[0] != '-' ? word : command;
  }
  if (isWanted) {
    printJson(std::cout, errorJson(command, kExitHostError, error));
    std::cout.flush();
  }
}

}  // namespace arvl_host
