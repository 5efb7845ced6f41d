// arvl-host: a framework stand-in that runs plug-ins on a developer's machine.

#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "cli/command_line.h"
#include "cli/output_options.h"
#include "cli/process_setup.h"
#include "step/exit_code.h"

namespace {

int run(int argc, char **argv) {
  arvl_host::CommandLine commandLine;
  std::string failure;
  try {
    commandLine.parse(argc, argv);
    return commandLine.run();
  } catch (const CLI::ParseError &error) {
    if (commandLine.app().exit(error) == 0) {
      return arvl_host::kExitSuccess;  // --help or --version
    }
    failure = error.what();
  } catch (const std::exception &error) {
    std::cerr << "arvl-host: " << error.what() << '\n';
    failure = error.what();
  }
  arvl_host::writeFailure(std::vector<std::string>(argv + 1, argv + argc), failure);
  return arvl_host::kExitHostError;
}

}  // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): one while the last error is shown ends the program
int main(int argc, char **argv) {
  arvl_host::setUpProcess();
  return run(argc, argv);
}
