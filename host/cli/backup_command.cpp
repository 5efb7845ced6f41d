#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "backup/job.h"
#include "cli/job_options.h"
#include "cli/json_file.h"
#include "cli/plugin_options.h"
#include "cli/subcommands.h"
#include "cli/validators.h"
#include "framework/framework.h"

namespace arvl_host {

namespace {

struct BackupOptions {
  JobCommandOptions common;
  std::string externalHandlerResultFile;
};

int backup(const BackupOptions &options) {
  JobOptions job = jobOptions(options.common);
  if (!options.externalHandlerResultFile.empty()) {
    withJsonFile(options.externalHandlerResultFile, [&job](const Json::Value &result) {
      checkExternalHandlerResult(result);
      job.externalHandlerResult = result;
    });
  }
  return runJob(runBackup, options.common, job);
}

}  // namespace

std::function<int()> addBackupCommand(CLI::App &app) {
  auto options = std::make_shared<BackupOptions>();
  CLI::App *command = app.add_subcommand("backup", "Back an application up into a store");
  addJobOptions(*command, options->common,
                "Directory of the backups, created if it does not exist");
  addSelectionOptions(*command, options->common.plugin);
  command
      ->add_option(
          "--external-handler-result", options->externalHandlerResultFile,
          "Results of external handlers for the later import: a JSON array of objects with "
          "\"handler\", \"handler_type\" and \"result\"")
      ->check(existingFile())
      ->type_name("FILE");
  addJobOutputOptions(*command, options->common);
  return [options] { return backup(*options); };
}

}  // namespace arvl_host
