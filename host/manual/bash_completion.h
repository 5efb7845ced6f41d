// A bash completion from the definitions of a command line.
#ifndef ARVL_HOST_MANUAL_BASH_COMPLETION_H_
#define ARVL_HOST_MANUAL_BASH_COMPLETION_H_

#include <CLI/App.hpp>
#include <ostream>

namespace arvl_host {

// A script to be sourced, which needs bash alone. Offers the subcommands; then the options that may
// still be given; and where a value is due, the words to choose from, files or folders.
void writeBashCompletion(const CLI::App &app, std::ostream &out);

}  // namespace arvl_host

#endif  // ARVL_HOST_MANUAL_BASH_COMPLETION_H_
