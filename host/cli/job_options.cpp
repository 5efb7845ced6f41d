#include "cli/job_options.h"

#include <CLI/CLI.hpp>
#include <filesystem>

#include "backup/catalog.h"
#include "backup/report.h"
#include "cli/exit_code_text.h"
#include "cli/validators.h"

namespace arvl_host {

namespace {

constexpr double kStepTimeout = 86400;  // seconds: a large backup takes hours

// Returns --name, or by default the name of the plug-in's directory.
std::string applicationOf(const JobCommandOptions &options) {
  if (!options.name.empty()) {
    return options.name;
  }
  // Does not resolve links: a link may point to the version in use.
  const std::filesystem::path folder =
      (std::filesystem::absolute(options.plugin.pluginDir) / "").lexically_normal();
  const std::string name = folder.parent_path().filename();
  if (!checkApplicationName(name).empty()) {
    throw CLI::ValidationError("--name",
                               "the name of the plug-in's directory is not a valid application "
                               "name: give one with --name");
  }
  return name;
}

}  // namespace

void addJobOptions(CLI::App &command, JobCommandOptions &options, const char *storeText) {
  command.footer(pluginExitCodeHelp());
  options.plugin.timeout = kStepTimeout;
  command.add_option("--store", options.store, storeText)
      ->required()
      ->check(notEmpty())
      ->type_name("DIR");
  command
      .add_option(
          "--name", options.name,
          "Name of the application in the store (default: the name of the plug-in's directory)")
      ->check(applicationName())
      ->type_name("NAME");
  addPluginOptions(command, options.plugin);
}

void addJobOutputOptions(CLI::App &command, JobCommandOptions &options) {
  addOutputOptions(command, options.output);
  addVerboseOption(command, options.output);
}

JobOptions jobOptions(const JobCommandOptions &options) {
  JobOptions job;
  job.run.folder = options.plugin.pluginDir;
  job.run.frameworkVersion = options.plugin.frameworkVersion;
  job.run.timeout = toMilliseconds(options.plugin.timeout);
  job.run.grace = toMilliseconds(options.plugin.grace);
  job.values = readValues(options.plugin);
  job.store = options.store;
  job.application = applicationOf(options);
  job.tool = "arvl-host " ARVL_VERSION;
  return job;
}

int runJob(JobReport (*run)(const JobOptions &, JobDisplay &, TraceWriter &),
           const JobCommandOptions &options, const JobOptions &job) {
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

}  // namespace arvl_host
