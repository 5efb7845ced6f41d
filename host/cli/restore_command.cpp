#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "backup/job.h"
#include "cli/job_options.h"
#include "cli/subcommands.h"
#include "cli/validators.h"

namespace arvl_host {

namespace {

struct RestoreOptions {
  JobCommandOptions common;
  std::string backup;
};

int restore(const RestoreOptions &options) {
  JobOptions job = jobOptions(options.common);
  job.backup = options.backup;
  return runJob(runRestore, options.common, job);
}

}  // namespace

std::function<int()> addRestoreCommand(CLI::App &app) {
  auto options = std::make_shared<RestoreOptions>();
  CLI::App *command = app.add_subcommand("restore", "Restore an application from a store");
  addJobOptions(*command, options->common, "Directory of the backups");
  command->get_option("--store")->check(existingDirectory());
  command->add_option("--backup", options->backup, "Name of the backup (default: the latest)")
      ->check(notEmpty())
      ->type_name("ID");
  addJobOutputOptions(*command, options->common);
  return [options] { return restore(*options); };
}

}  // namespace arvl_host
