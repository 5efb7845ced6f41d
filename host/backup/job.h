// Runs whole jobs: a backup, and a restore from one.
#ifndef ARVL_HOST_BACKUP_JOB_H_
#define ARVL_HOST_BACKUP_JOB_H_

#include <json/value.h>

#include <optional>
#include <string>
#include <vector>

#include "backup/job_steps.h"
#include "backup/manifest.h"

namespace arvl_host {

struct JobOptions {
  PluginRun run;
  FrameworkValues values;
  std::string store;
  std::string application;
  std::string backup;                 // to restore from; empty: the latest
  Json::Value externalHandlerResult;  // stored with the backup; null: none
  std::string tool;                   // the program with its version
};

struct JobReport {
  std::string command;  // "backup", "restore"
  int exitCode = 0;
  std::string error;                 // why the job failed; empty: it succeeded
  std::string folder;                // of the backup; empty: there is none
  std::optional<Manifest> manifest;  // of the backup
  std::vector<std::string> missingSteps;
  std::vector<StepReport> steps;
  Tally denials;
  std::uint64_t files = 0;  // delivered
  std::uint64_t bytes = 0;
  double seconds = 0;
};

// Both block until the job is over and show it on the display. They throw nothing: errors are in the
// report. SIGINT, SIGTERM and SIGHUP cancel the job.

// Runs summary, estimate_exportion, can_export and export, and stores the data. Removes the backup if the
// job fails.
JobReport runBackup(const JobOptions &options, JobDisplay &display, TraceWriter &trace);

// Runs can_import and import on a backup of the store. Checks each file while it is served.
JobReport runRestore(const JobOptions &options, JobDisplay &display, TraceWriter &trace);

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_JOB_H_
