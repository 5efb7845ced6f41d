// The options of the commands that work on a store.
#ifndef ARVL_HOST_CLI_STORE_OPTIONS_H_
#define ARVL_HOST_CLI_STORE_OPTIONS_H_

#include <CLI/App.hpp>
#include <string>

#include "cli/output_options.h"

namespace arvl_host {

struct StoreCommandOptions {
  std::string store;
  std::string name;
  OutputOptions output;
};

// `options` must outlive the app.
void addStoreOptions(CLI::App &command, StoreCommandOptions &options);

}  // namespace arvl_host

#endif  // ARVL_HOST_CLI_STORE_OPTIONS_H_
