// The subcommands "backup" and "restore".
#ifndef ARVL_HOST_CLI_JOB_COMMANDS_H_
#define ARVL_HOST_CLI_JOB_COMMANDS_H_

#include <CLI/App.hpp>
#include <functional>

namespace arvl_host {

// What is returned runs the command once the app has parsed.
std::function<int()> addBackupCommand(CLI::App &app);
std::function<int()> addRestoreCommand(CLI::App &app);

}  // namespace arvl_host

#endif  // ARVL_HOST_CLI_JOB_COMMANDS_H_
