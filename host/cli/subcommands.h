// The subcommands of arvl-host: each adds itself to the command line.
#ifndef ARVL_HOST_CLI_SUBCOMMANDS_H_
#define ARVL_HOST_CLI_SUBCOMMANDS_H_

#include <CLI/App.hpp>
#include <functional>

namespace arvl_host {

// Each adds its subcommand to the app, and returns the function that runs it once the app has parsed.
// That function returns the exit code.
std::function<int()> addBackupCommand(CLI::App &app);
std::function<int()> addRestoreCommand(CLI::App &app);
std::function<int()> addListCommand(CLI::App &app);
std::function<int()> addVerifyCommand(CLI::App &app);
std::function<int()> addPruneCommand(CLI::App &app);
std::function<int()> addStepCommand(CLI::App &app);
std::function<int()> addTraceCommand(CLI::App &app);

}  // namespace arvl_host

#endif  // ARVL_HOST_CLI_SUBCOMMANDS_H_
