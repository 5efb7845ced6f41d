#include "backup/job.h"

#include <chrono>
#include <filesystem>
#include <future>
#include <stdexcept>
#include <utility>

#include "backup/backup_source.h"
#include "backup/catalog.h"
#include "backup/data_recorder.h"
#include "backup/manifest_writer.h"
#include "backup/new_backup.h"
#include "step/exit_code.h"
#include "step/interruption.h"
#include "step/outcome.h"
#include "text/dates.h"
#include "text/durations.h"
#include "text/utf8.h"
#include "zarn/arvlapp/agent.h"

namespace fs = std::filesystem;

namespace arvl_host {

namespace {

using std::chrono::steady_clock;
using ZARN::ARVLAPP::Agent;

// Ends a job without success. Holds the exit code of the program.
struct JobFailure : std::runtime_error {
  JobFailure(int code, const std::string &what) : std::runtime_error(what), exitCode(code) {}
  int exitCode;
};

// Returns why a step failed, in one line.
std::string explain(const std::string &step, const StepResult &result) {
  if (result.outcome == Outcome::kInterrupted) {
    return "interrupted in the step " + step;
  }
  std::string text = "the step " + step + " ended with " + outcomeText(result.outcome);
  const Json::Value &reason = result.completion["err_msg"];
  if (reason.isObject()) {
    text += ", section \"" + reason["section"].asString() + "\", key \"" +
            reason["key"].asString() + "\"";
  }
  if (!result.reason.empty()) {
    text += ": " + result.reason;
  }
  return text;
}

// The common part of a backup and a restore.
class Job {
 public:
  Job(const char *command, const JobOptions &options, JobDisplay &display, TraceWriter &trace)
      : options_(options),
        display_(display),
        steps_(options.run, display, trace, meter_, interruption_),
        begin_(steady_clock::now()) {
    report_.command = command;
  }
  virtual ~Job() = default;
  Job(const Job &) = delete;
  Job &operator=(const Job &) = delete;

  JobReport report() {
    try {
      perform();
    } catch (const JobFailure &failure) {
      fail(failure.exitCode, failure.what());
    } catch (const Interrupted &) {
      fail(kExitInterrupted, "interrupted");
    } catch (const std::exception &error) {
      fail(kExitHostError, error.what());
    }
    report_.seconds = secondsSince(begin_);
    report_.steps = steps_.reports();
    report_.denials = steps_.denials();
    report_.files = meter_.files;
    report_.bytes = meter_.bytes;
    return std::move(report_);
  }

 protected:
  virtual void perform() = 0;

  void require(const char *step) {
    if (!steps_.has(step)) {
      throw JobFailure(kExitHostError, "the plug-in in " + visibleText(options_.run.folder) +
                                           " has no executable \"" + step + "\": there is no " +
                                           report_.command + " without it");
    }
  }

  // Returns null if the plug-in does not have the step.
  const StepResult *runOptional(const char *step, RequestServer &server) {
    if (!steps_.has(step)) {
      report_.missingSteps.push_back(step);
      display_.note(std::string("the plug-in has no executable \"") + step +
                    "\": the step is left out");
      return nullptr;
    }
    return &run(step, server);
  }

  const StepResult &run(const char *step, RequestServer &server) {
    interruption_.check();
    const StepResult &result = steps_.run(step, server);
    for (const std::string &line : result.lines) {
      display_.warning("rule book: " + line);
    }
    if (result.outcome != Outcome::kSuccess && result.refusedEstimate.isNull()) {
      throw JobFailure(exitCodeOf(result.outcome), explain(step, result));
    }
    return result;
  }

  const JobOptions &options_;
  JobDisplay &display_;
  Interruption interruption_;
  TransferMeter meter_;
  JobSteps steps_;
  JobReport report_;

 private:
  void fail(int exitCode, const std::string &error) {
    report_.exitCode = exitCode;
    report_.error = error;
    display_.error(error);
  }

  const steady_clock::time_point begin_;
};

// ---- Backup.

class BackupJob : public Job {
 public:
  BackupJob(const JobOptions &options, JobDisplay &display, TraceWriter &trace)
      : Job("backup", options, display, trace) {}

 private:
  void perform() override;
  void prepare(Manifest &manifest);
  void takeEstimate(Manifest &manifest, RequestServer &server);
  void exportTo(const fs::path &data, Manifest &manifest);
  void warnOfSkipped(const Tally &skipped);

  FileIndex index_;
};

void BackupJob::perform() {
  display_.heading("backup of " + options_.application);
  require(Agent::PLUGIN_NAME_EXPORT);
  makeStore(options_.store);
  const Catalog catalog(options_.store);
  NewBackup backup(catalog, options_.application);
  for (const std::string &name : backup.unfinished().removed) {
    display_.note("removed " + name + ", a backup that did not finish");
  }
  for (const std::string &error : backup.unfinished().errors) {
    display_.warning(error + "; the backup goes on, remove the directory by hand");
  }

  Manifest manifest;
  manifest.application = options_.application;
  manifest.id = backup.id();
  manifest.tool = options_.tool;
  manifest.frameworkVersion = options_.run.frameworkVersion;
  manifest.externalHandlerResult = options_.externalHandlerResult;
  manifest.started = isoDate(microsecondsNow());
  prepare(manifest);
  const fs::path data = backup.partialFolder() / kDataName;
  exportTo(data, manifest);
  // The disk writes the data while it is recorded.
  std::future<void> synced = std::async(std::launch::async, [&backup] { backup.sync(); });
  DataRecorder recorder(data, index_, display_, interruption_);
  manifest.totals = recorder.record();
  synced.get();
  manifest.finished = isoDate(microsecondsNow());
  manifest.denials = steps_.denials();
  writeManifest(backup.partialFolder(), manifest, index_, [this] { interruption_.check(); });
  recorder.checkMoved();
  interruption_.check();
  backup.finish();
  report_.folder = backup.folder();
  report_.manifest = manifest;
}

// The steps before the export cannot request files.
void BackupJob::prepare(Manifest &manifest) {
  Framework framework(options_.values, nullptr, steps_.progress());
  if (const StepResult *summary = runOptional(Agent::PLUGIN_NAME_SUMMARY, framework)) {
    manifest.summary = summary->completion;
    for (const char *text : {"backup_short", "backup_long"}) {
      display_.note(summary->completion[text].asString());
    }
  }
  takeEstimate(manifest, framework);
  runOptional(Agent::PLUGIN_NAME_CAN_EXPORT, framework);
}

void BackupJob::takeEstimate(Manifest &manifest, RequestServer &server) {
  const StepResult *result = runOptional(Agent::PLUGIN_NAME_ESTIMATE_EXPORTION, server);
  if (result == nullptr) {
    return;
  }
  manifest.isEstimateRefused = !result->refusedEstimate.isNull();
  manifest.estimate = manifest.isEstimateRefused ? result->refusedEstimate : result->completion;
  if (manifest.isEstimateRefused) {
    display_.warning(result->reason + "; the backup goes on");
  }
}

void BackupJob::exportTo(const fs::path &data, Manifest &manifest) {
  BackupWatcher watcher(index_, meter_);
  Store store(data, {{&watcher, Durability::kLeftToCaller}, false});
  Framework framework(options_.values, &store, steps_.progress());
  const Json::Value &estimate = manifest.estimate;
  const Json::Value &size = estimate["size"];
  if (size.isUInt64()) {
    steps_.expectBytes(size.asUInt64());
  }
  manifest.exportResult = run(Agent::PLUGIN_NAME_EXPORT, framework).completion;
  exportResultOf(manifest, "the completion of export cannot be handed to an import");
  manifest.changed = watcher.changed();
  for (const std::string &warning : watcher.warnings()) {
    display_.warning(warning);
  }
  manifest.skipped = watcher.skipped();
  warnOfSkipped(manifest.skipped);
}

void BackupJob::warnOfSkipped(const Tally &skipped) {
  for (const std::string &path : skipped.texts) {
    display_.warning(skippedText(path));
  }
  if (skipped.count > skipped.texts.size()) {
    display_.warning("skipped " + std::to_string(skipped.count) + " entries in all");
  }
}

// ---- Restore.

class RestoreJob : public Job {
 public:
  RestoreJob(const JobOptions &options, JobDisplay &display, TraceWriter &trace)
      : Job("restore", options, display, trace) {}

 private:
  void perform() override;
};

void RestoreJob::perform() {
  display_.heading("restore of " + options_.application);
  require(Agent::PLUGIN_NAME_IMPORT);
  const Catalog catalog(options_.store);
  const std::string id = catalog.find(options_.application, options_.backup);
  const fs::path folder = catalog.folderOf(options_.application) / id;
  BackupSource backup(folder, meter_, [this] { interruption_.check(); });
  report_.manifest = backup.manifest();
  report_.folder = folder;
  display_.note("from backup " + id + ", data version " + report_.manifest->dataVersion());
  for (const std::string &text : backup.manifest().restoreTexts()) {
    display_.note(text);
  }

  FrameworkValues values = options_.values;
  values.exportResult = backup.exportResult();
  Framework framework(values, &backup.store(), steps_.progress());
  runOptional(Agent::PLUGIN_NAME_CAN_IMPORT, framework);
  steps_.expectBytes(report_.manifest->totals.bytes);
  run(Agent::PLUGIN_NAME_IMPORT, framework);
}

}  // namespace

JobReport runBackup(const JobOptions &options, JobDisplay &display, TraceWriter &trace) {
  return BackupJob(options, display, trace).report();
}

JobReport runRestore(const JobOptions &options, JobDisplay &display, TraceWriter &trace) {
  return RestoreJob(options, display, trace).report();
}

}  // namespace arvl_host
