// Writes a bash completion from the definitions of a command line.
#ifndef ARVL_HOST_MANUAL_BASH_COMPLETION_H_
#define ARVL_HOST_MANUAL_BASH_COMPLETION_H_

#include <CLI/App.hpp>
#include <ostream>

namespace arvl_host {

// Writes a script that bash sources; it needs no other program. Completes subcommands, options that may
// still be given, and values: words to choose from, files or directories.
void writeBashCompletion(const CLI::App &app, std::ostream &out);

}  // namespace arvl_host

#endif  // ARVL_HOST_MANUAL_BASH_COMPLETION_H_
