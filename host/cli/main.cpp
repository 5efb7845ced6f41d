// arvl-host: a framework stand-in that runs plug-ins on a developer's machine.

#include <fcntl.h>
#include <malloc.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "backup/report.h"
#include "cli/command_line.h"
#include "cli/output_options.h"
#include "step/exit_code.h"
#include "step/plugin_process.h"

namespace {

// Whoever asked for a report in JSON reads of every failure there. Of wrong usage, too, before the command
// line is understood.
void reportFailure(int argc, char **argv, const std::string &error) {
  const std::string option = arvl_host::kJsonOption;
  bool isWanted = false;
  std::string command;
  for (const std::string &word : std::vector<std::string>(argv + 1, argv + argc)) {
    isWanted = isWanted || word == option || word.rfind(option + "=", 0) == 0;
    command = command.empty() && word[0] != '-' ? word : command;
  }
  if (isWanted) {
    std::cout << arvl_host::jsonText(
                     arvl_host::errorJson(command, arvl_host::kExitHostError, error))
              << std::flush;
  }
}

int run(int argc, char **argv) {
  arvl_host::CommandLine commandLine;
  try {
    commandLine.parse(argc, argv);
    return commandLine.run();
  } catch (const CLI::ParseError &error) {
    if (commandLine.app().exit(error) == 0) {
      return 0;  // help or version was asked for
    }
    reportFailure(argc, argv, error.what());
  } catch (const std::exception &error) {
    std::cerr << "arvl-host: " << error.what() << '\n';
    reportFailure(argc, argv, error.what());
  }
  return arvl_host::kExitHostError;
}

// Where a standard stream is closed, the next descriptor would take its number, and its place in the
// plug-in.
void openStandardStreams() {
  int fd = -1;
  do {
    fd = open("/dev/null", O_RDWR);
  } while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0) {
    close(fd);
  }
}

}  // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): one while the last error is shown ends the program
int main(int argc, char **argv) {
  openStandardStreams();
  arvl_host::raiseDescriptorLimit();
  // A block of the size of a payload goes back to the kernel when it is freed: 100 MiB less at the peak.
  mallopt(M_MMAP_THRESHOLD, 1 << 20);
  signal(SIGPIPE, SIG_IGN);  // a plug-in that is gone shows in the write
  return run(argc, argv);
}
