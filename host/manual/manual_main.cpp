// Writes the man page or the bash completion of arvl-host to stdout.

#include <CLI/CLI.hpp>
#include <iostream>
#include <string>

#include "cli/command_line.h"
#include "manual/bash_completion.h"
#include "manual/man_page.h"

int main(int argc, char **argv) {
  arvl_host::CommandLine commandLine;
  const std::string what = argc == 2 ? argv[1] : "";
  if (what == "man") {
    arvl_host::writeManPage(commandLine.app(), ARVL_VERSION, std::cout);
  } else if (what == "bash") {
    arvl_host::writeBashCompletion(commandLine.app(), std::cout);
  } else {
    std::cerr << "usage: arvl-host-write-manual man|bash\n";
    return 2;
  }
  return std::cout.flush() ? 0 : 1;
}
