#include "cli/store_options.h"

#include <CLI/CLI.hpp>

#include "cli/validators.h"

namespace arvl_host {

void addStoreOptions(CLI::App &command, StoreCommandOptions &options) {
  command.add_option("--store", options.store, "Directory of the backups")
      ->required()
      ->check(existingDirectory())
      ->type_name("DIR");
  command.add_option("--name", options.name, "Only the backups of this application")
      ->check(applicationName())
      ->type_name("NAME");
  addOutputOptions(command, options.output);
}

}  // namespace arvl_host
