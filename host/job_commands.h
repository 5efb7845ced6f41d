// The subcommands "backup" and "restore".
#ifndef ARVL_HOST_JOB_COMMANDS_H_
#define ARVL_HOST_JOB_COMMANDS_H_

#include <CLI/App.hpp>
#include <functional>
#include <string>

namespace arvl_host {

// What is returned runs the command once the app has parsed.
std::function<int()> addBackupCommand(CLI::App &app);
std::function<int()> addRestoreCommand(CLI::App &app);

// For CLI::Option::check: the name of an application's folder in a store.
std::string checkApplication(const std::string &name);

}  // namespace arvl_host

#endif  // ARVL_HOST_JOB_COMMANDS_H_
