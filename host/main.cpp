// arvl-host: a framework stand-in that runs plug-ins on a developer's machine.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>

#include "command_line.h"

namespace {

constexpr int kUsageError = 2;

int run(int argc, char **argv) {
  arvl_host::CommandLine commandLine;
  CLI::App &app = commandLine.app();
  try {
    app.parse(argc, argv);
    return commandLine.run();
  } catch (const CLI::ParseError &error) {
    return app.exit(error) == 0 ? 0 : kUsageError;  // 0: help or version was asked for
  } catch (const std::exception &error) {
    std::cerr << "arvl-host: " << error.what() << '\n';
    return kUsageError;
  }
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
  signal(SIGPIPE, SIG_IGN);  // a plug-in that is gone shows in the write
  return run(argc, argv);
}
