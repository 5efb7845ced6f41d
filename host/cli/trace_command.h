// "arvl-host trace": shows a trace to a person.
#ifndef ARVL_HOST_CLI_TRACE_COMMAND_H_
#define ARVL_HOST_CLI_TRACE_COMMAND_H_

#include <CLI/App.hpp>
#include <functional>

namespace arvl_host {

// Adds the subcommand. Its function, to be called when it has been chosen, returns the exit code.
std::function<int()> addTraceCommand(CLI::App &app);

}  // namespace arvl_host

#endif  // ARVL_HOST_CLI_TRACE_COMMAND_H_
