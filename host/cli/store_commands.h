// The subcommands "list", "verify" and "prune", which look after a store.
#ifndef ARVL_HOST_CLI_STORE_COMMANDS_H_
#define ARVL_HOST_CLI_STORE_COMMANDS_H_

#include <CLI/App.hpp>
#include <functional>

namespace arvl_host {

// What is returned runs the command once the app has parsed.
std::function<int()> addListCommand(CLI::App &app);
std::function<int()> addVerifyCommand(CLI::App &app);
std::function<int()> addPruneCommand(CLI::App &app);

}  // namespace arvl_host

#endif  // ARVL_HOST_CLI_STORE_COMMANDS_H_
