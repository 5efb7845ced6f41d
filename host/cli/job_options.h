// The options of the commands that run a job, and the run of one.
#ifndef ARVL_HOST_CLI_JOB_OPTIONS_H_
#define ARVL_HOST_CLI_JOB_OPTIONS_H_

#include <CLI/App.hpp>
#include <string>

#include "backup/job.h"
#include "cli/output_options.h"
#include "cli/plugin_options.h"

namespace arvl_host {

struct JobCommandOptions {
  PluginOptions plugin;
  OutputOptions output;
  std::string store;
  std::string name;
};

// `options` must outlive the app.
void addJobOptions(CLI::App &command, JobCommandOptions &options, const char *storeText);
void addJobOutputOptions(CLI::App &command, JobCommandOptions &options);

// Returns the job that the options describe. Throws CLI::ValidationError or std::runtime_error.
JobOptions jobOptions(const JobCommandOptions &options);

// Runs a job and writes its report. Returns its exit code. Throws std::runtime_error.
int runJob(JobReport (*run)(const JobOptions &, JobDisplay &, TraceWriter &),
           const JobCommandOptions &options, const JobOptions &job);

}  // namespace arvl_host

#endif  // ARVL_HOST_CLI_JOB_OPTIONS_H_
