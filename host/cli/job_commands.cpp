#include "cli/job_commands.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "backup/catalog.h"
#include "backup/job.h"
#include "backup/report.h"
#include "cli/output_options.h"
#include "cli/plugin_options.h"

namespace arvl_host {

namespace {

constexpr double kStepTimeout = 86400;  // seconds: a job takes as long as there are files

constexpr const char *kExitCodes =
    "Exit codes:\n"
    "  0    the job succeeded\n"
    "  1    the plug-in reported failure\n"
    "  2    wrong usage, or the store could not be used, or a step could not be\n"
    "       started\n"
    "  3    the plug-in broke the protocol; the rule-book lines are shown\n"
    "  4    time-out of a step\n"
    "  5    the plug-in crashed, or sent no completion\n"
    "  130  interrupted\n"
    "Ctrl-C cancels the job by closing the plug-in's socket; a second one kills the\n"
    "plug-in.\n";

struct CommandOptions {
  PluginOptions plugin;
  OutputOptions output;
  std::string store;
  std::string name;
  std::string backup;
  std::string externalHandlerResultFile;
};

// By the plug-in's folder, unless the user has said it.
std::string applicationOf(const CommandOptions &options) {
  if (!options.name.empty()) {
    return options.name;
  }
  // As it was given: a link may stand for the version that is in use.
  const std::filesystem::path folder =
      (std::filesystem::absolute(options.plugin.pluginDir) / "").lexically_normal();
  const std::string name = folder.parent_path().filename();
  if (!checkApplicationName(name).empty()) {
    throw CLI::ValidationError("--name",
                               "the plug-in's folder does not tell the application's "
                               "name: say it with --name");
  }
  return name;
}

JobOptions jobOptions(const CommandOptions &options) {
  JobOptions job;
  job.run.folder = options.plugin.pluginDir;
  job.run.frameworkVersion = options.plugin.frameworkVersion;
  job.run.timeout = toMilliseconds(options.plugin.timeout);
  job.run.grace = toMilliseconds(options.plugin.grace);
  job.values = readValues(options.plugin);
  job.store = options.store;
  job.application = applicationOf(options);
  job.backup = options.backup;
  job.tool = "arvl-host " ARVL_VERSION;
  return job;
}

using RunJob = JobReport (*)(const JobOptions &, JobDisplay &, TraceWriter &);

int runJob(RunJob run, const CommandOptions &options, const JobOptions &job) {
  TraceWriter trace;
  openTrace(options.plugin, trace);
  JobReport report;
  {
    OutputDisplay display(options.output);
    report = run(job, display, trace);
  }
  writeReport(options.output, reportJson(report), reportLines(report));
  return report.exitCode;
}

int backup(const CommandOptions &options) {
  JobOptions job = jobOptions(options);
  if (!options.externalHandlerResultFile.empty()) {
    job.externalHandlerResult = readJson(options.externalHandlerResultFile);
    try {
      checkExternalHandlerResult(job.externalHandlerResult);
    } catch (const std::runtime_error &error) {
      throw std::runtime_error(options.externalHandlerResultFile + ": " + error.what());
    }
  }
  return runJob(runBackup, options, job);
}

int restore(const CommandOptions &options) {
  return runJob(runRestore, options, jobOptions(options));
}

void addJobOptions(CLI::App &command, CommandOptions &options, const char *storeText) {
  options.plugin.timeout = kStepTimeout;
  command.add_option("--store", options.store, storeText)
      ->required()
      ->check(notEmpty())
      ->type_name("DIR");
  command
      .add_option("--name", options.name,
                  "The application's name in the store (default: that of the plug-in's folder)")
      ->check(CLI::Validator(checkApplicationName, ""))
      ->type_name("NAME");
  addPluginOptions(command, options.plugin);
}

}  // namespace

std::function<int()> addBackupCommand(CLI::App &app) {
  auto options = std::make_shared<CommandOptions>();
  CLI::App *command = app.add_subcommand("backup", "Back an application up into a store");
  command->footer(kExitCodes);
  addJobOptions(*command, *options, "The folder that keeps the backups; made if it is not there");
  addSelectionOptions(*command, options->plugin);
  command
      ->add_option("--external-handler-result", options->externalHandlerResultFile,
                   "What external handlers report of this export, for the import to come: a JSON "
                   "array of objects with \"handler\", \"handler_type\" and \"result\"")
      ->check(existingFile())
      ->type_name("FILE");
  addOutputOptions(*command, options->output);
  addVerboseOption(*command, options->output);
  return [options] { return backup(*options); };
}

std::function<int()> addRestoreCommand(CLI::App &app) {
  auto options = std::make_shared<CommandOptions>();
  CLI::App *command = app.add_subcommand("restore", "Restore an application from a store");
  command->footer(kExitCodes);
  addJobOptions(*command, *options, "The folder that keeps the backups");
  command->get_option("--store")->check(existingDirectory());
  command->add_option("--backup", options->backup, "The backup's name (default: the latest)")
      ->check(notEmpty())
      ->type_name("ID");
  addOutputOptions(*command, options->output);
  addVerboseOption(*command, options->output);
  return [options] { return restore(*options); };
}

}  // namespace arvl_host
