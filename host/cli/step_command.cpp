#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "backup/backup_source.h"
#include "backup/catalog.h"
#include "cli/exit_code_text.h"
#include "cli/json_file.h"
#include "cli/plugin_options.h"
#include "cli/step_display.h"
#include "cli/subcommands.h"
#include "cli/validators.h"
#include "files/store.h"
#include "framework/framework.h"
#include "step/interruption.h"
#include "step/outcome.h"
#include "step/plugin_folder.h"
#include "step/step_runner.h"
#include "text/tally.h"
#include "text/utf8.h"
#include "trace/trace_writer.h"
#include "trace/tracing_listener.h"
#include "zarn/arvlapp/agent.h"

namespace fs = std::filesystem;

namespace arvl_host {

namespace {

using ZARN::ARVLAPP::Agent;

struct StepOptions {
  std::string step;
  PluginOptions plugin;
  std::string exportResultFile;
  std::string storeDir;
  std::string backupDir;
};

// Remembers the files that transfers skip. Read it only when no transfer runs.
class SkipWatcher : public TransferWatcher {
 public:
  void onVanished(const std::string &path) override { skipped_.add(path); }
  const Tally &skipped() const { return skipped_; }

 private:
  Tally skipped_;
};

std::string findExecutable(const StepOptions &options) {
  const std::string path = findStep(options.plugin.pluginDir, options.step);
  if (path.empty()) {
    throw CLI::ValidationError("--plugin", "there is no \"" + options.step + "\" in " +
                                               visibleText(options.plugin.pluginDir) +
                                               ": the plug-in has no executable for this step");
  }
  return path;
}

fs::path backupFolder(const StepOptions &options) {
  if (options.step == Agent::PLUGIN_NAME_EXPORT) {
    throw CLI::ValidationError("--backup",
                               "an export cannot write to a finished backup: use --store instead");
  }
  return finishedBackup(options.backupDir);
}

// Lets go of the signals when the step is over, so that the output after it can be interrupted.
StepResult runOneStep(const StepRequest &request, RequestServer &server,
                      const StepListeners &listeners) {
  Interruption interruption;
  return runStep(request, server, interruption, listeners);
}

int runStepCommand(const StepOptions &options) {
  StepRequest request;
  request.step = options.step;
  request.executable = findExecutable(options);
  request.frameworkVersion = options.plugin.frameworkVersion;
  request.timeout = toMilliseconds(options.plugin.timeout);
  request.grace = toMilliseconds(options.plugin.grace);

  FrameworkValues values = readValues(options.plugin);
  if (!options.exportResultFile.empty()) {
    withJsonFile(options.exportResultFile, [&values](const Json::Value &content) {
      values.exportResult = makeExportResult(content);
    });
  }
  SkipWatcher watcher;
  std::optional<Store> store;
  if (!options.storeDir.empty()) {
    store.emplace(options.storeDir, StoreOptions{{&watcher, Durability::kEachFile}, false});
  }
  TransferMeter meter;
  std::optional<BackupSource> backup;
  if (!options.backupDir.empty()) {
    backup.emplace(backupFolder(options), meter);
    values.exportResult = backup->exportResult();
  }
  Store *served = backup ? &backup->store() : store ? &*store : nullptr;
  Framework framework(values, served, StepDisplay::showProgress);

  StepDisplay display;
  TraceWriter trace;
  openTrace(options.plugin, trace);
  TracingListener tracer(trace);
  const StepResult result = runOneStep(request, framework, {&tracer, &display});
  trace.stepEnded(outcomeText(result.outcome), exitCodeOf(result.outcome));
  StepDisplay::showSkipped(watcher.skipped());
  StepDisplay::showResult(options.step, result);
  return exitCodeOf(result.outcome);
}

}  // namespace

std::function<int()> addStepCommand(CLI::App &app) {
  auto options = std::make_shared<StepOptions>();
  CLI::App *command =
      app.add_subcommand("step", "Run one step of a plug-in as the framework would");
  command->footer(pluginExitCodeHelp() +
                  "A completion decides, even if the plug-in exits with a nonzero status.\n");
  command->add_option("name", options->step, "Step to run")
      ->required()
      ->check(CLI::IsMember({Agent::PLUGIN_NAME_SUMMARY, Agent::PLUGIN_NAME_ESTIMATE_EXPORTION,
                             Agent::PLUGIN_NAME_CAN_EXPORT, Agent::PLUGIN_NAME_EXPORT,
                             Agent::PLUGIN_NAME_CAN_IMPORT, Agent::PLUGIN_NAME_IMPORT}));
  addPluginOptions(*command, options->plugin);
  addSelectionOptions(*command, options->plugin);
  command
      ->add_option("--export-result", options->exportResultFile,
                   "Result of the export, for an import: a JSON object with \"export_result\" and "
                   "optionally \"external_handler_result\", or the export result alone, such as "
                   "{\"success\": true, \"app_data_version\": \"1.0\"}")
      ->check(existingFile())
      ->type_name("FILE");
  command->add_option("--store", options->storeDir, "Directory that holds the framework's files")
      ->check(existingDirectory())
      ->type_name("DIR");
  command
      ->add_option(
          "--backup", options->backupDir,
          "Directory of a finished backup, STORE/APPLICATION/ID. Its data and export result "
          "are served read-only, as in a restore")
      ->check(existingDirectory())
      ->type_name("DIR")
      ->excludes("--store", "--export-result");
  return [options] { return runStepCommand(*options); };
}

}  // namespace arvl_host
