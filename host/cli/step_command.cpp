#include <json/reader.h>
#include <json/value.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>

#include "backup/backup_source.h"
#include "backup/catalog.h"
#include "cli/exit_code_text.h"
#include "cli/plugin_options.h"
#include "cli/subcommands.h"
#include "display/plugin_line.h"
#include "files/store.h"
#include "framework/framework.h"
#include "protocol/packet_table.h"
#include "step/interruption.h"
#include "step/outcome.h"
#include "step/plugin_folder.h"
#include "step/step_runner.h"
#include "text/hex.h"
#include "text/sizes.h"
#include "text/strict_json.h"
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

// What the host shows, a line at a time, each with where it comes from.
class Display : public StepListener {
 public:
  void onStart(const StepRequest &request, std::int64_t pid) override {
    std::cout << "running " << visibleText(request.executable) << " (process " << pid
              << ", framework " << request.frameworkVersion << ")\n";
  }
  void onLine(const PluginLine &line) override {
    std::cout << pluginLineText(line) << '\n' << std::flush;
  }
  void onGarbage(Side, std::string_view bytes, const std::string &reason) override {
    std::cout << "[host] " << reason << "; the bytes begin with " << toHex(bytes) << '\n';
  }
  void onAnswer(ZARN::ARVLAPP::PACKET_TYPE request, const Json::Value &,
                const std::optional<std::string> &denial) override {
    if (denial) {
      std::cout << "[host] " << ZARN::ARVLAPP::packetName(request)
                << " was denied: " << visibleText(*denial) << '\n'
                << std::flush;
    }
  }
};

// Remembers what a transfer skips. What it says is read once nothing is transferred.
class SkipWatcher : public TransferWatcher {
 public:
  void onVanished(const std::string &path) override { skipped_.add(path); }
  const Tally &skipped() const { return skipped_; }

 private:
  Tally skipped_;
};

std::string valueText(const Json::Value &value) {
  if (value.isString()) {
    return visibleText(value.asString());
  }
  std::string text;
  appendJson(text, value, JsonLayout::kCompact);
  return text;
}

// Of the path of a member; what is longer is cut.
constexpr std::size_t kMaxShownPath = 4096;

// One line a member; those of an object within stand below it by their path. There is one path for all
// levels: the names on the way may be long, and many.
void printMembers(const Json::Value &object, std::string &path) {
  const std::size_t before = path.size();
  for (auto member = object.begin(); member != object.end(); ++member) {
    path += member.name();
    if (member->isObject()) {
      path += '.';
      printMembers(*member, path);
    } else {
      std::cout << "  " << visibleText(cutText(path, kMaxShownPath)) << ": " << valueText(*member)
                << '\n';
    }
    path.resize(before);
  }
}

void printSkipped(const Tally &skipped) {
  for (const std::string &path : skipped.texts) {
    std::cout << "[host] " << skippedText(path) << '\n';
  }
  if (skipped.count > skipped.texts.size()) {
    std::cout << "[host] skipped " << skipped.count << " entries in all\n";
  }
}

void printResult(const std::string &step, const StepResult &result) {
  if (result.completion.isObject()) {
    std::cout << "completion:\n";
    std::string path;
    printMembers(result.completion, path);
  }
  for (const std::string &line : result.lines) {
    std::cout << "[rule book] " << visibleText(line) << '\n';
  }
  if (!result.reason.empty()) {
    std::cout << visibleText(result.reason) << '\n';
  }
  std::cout << "step " << step << ": " << outcomeText(result.outcome) << " (" << std::fixed
            << std::setprecision(3) << result.seconds << " s, "
            << countText(static_cast<std::uint64_t>(result.packets), "packet") << ")\n"
            << std::flush;
}

std::string findExecutable(const StepOptions &options) {
  const std::string path = findStep(options.plugin.pluginDir, options.step);
  if (path.empty()) {
    throw CLI::ValidationError("--plugin", "there is no \"" + options.step + "\" in " +
                                               visibleText(options.plugin.pluginDir) +
                                               ": the plug-in has no executable for this step");
  }
  return path;
}

Json::Value readExportResult(const std::string &file) {
  const Json::Value content = readJson(file);
  try {
    return makeExportResult(content);
  } catch (const std::runtime_error &error) {
    throw std::runtime_error(file + ": " + error.what());
  }
}

fs::path backupFolder(const StepOptions &options) {
  if (options.step == Agent::PLUGIN_NAME_EXPORT) {
    throw CLI::ValidationError("--backup", "a backup is read-only: give --store for an export");
  }
  return finishedBackup(options.backupDir);
}

void showProgress(const std::string &stage, int percentage) {
  std::cout << "[progress] " << percentage << " % " << visibleText(stage) << '\n' << std::flush;
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
    values.exportResult = readExportResult(options.exportResultFile);
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
  Framework framework(values, served, showProgress);

  Display display;
  TraceWriter trace;
  openTrace(options.plugin, trace);
  TracingListener tracer(trace);
  const StepResult result = runOneStep(request, framework, {&tracer, &display});
  trace.stepEnded(outcomeText(result.outcome), exitCodeOf(result.outcome));
  printSkipped(watcher.skipped());
  printResult(options.step, result);
  return exitCodeOf(result.outcome);
}

}  // namespace

std::function<int()> addStepCommand(CLI::App &app) {
  auto options = std::make_shared<StepOptions>();
  CLI::App *command =
      app.add_subcommand("step", "Run one step of a plug-in as the framework would");
  command->footer(pluginExitCodeHelp() +
                  "A completion decides, even if the plug-in exits with a nonzero status.\n");
  command->add_option("name", options->step, "The step")
      ->required()
      ->check(CLI::IsMember({Agent::PLUGIN_NAME_SUMMARY, Agent::PLUGIN_NAME_ESTIMATE_EXPORTION,
                             Agent::PLUGIN_NAME_CAN_EXPORT, Agent::PLUGIN_NAME_EXPORT,
                             Agent::PLUGIN_NAME_CAN_IMPORT, Agent::PLUGIN_NAME_IMPORT}));
  addPluginOptions(*command, options->plugin);
  addSelectionOptions(*command, options->plugin);
  command
      ->add_option(
          "--export-result", options->exportResultFile,
          "The record of the export, for an import: a JSON object with \"export_result\" and "
          "perhaps \"external_handler_result\", or the export result alone, such as "
          "{\"success\": true, \"app_data_version\": \"1.0\"}")
      ->check(existingFile())
      ->type_name("FILE");
  command
      ->add_option("--store", options->storeDir,
                   "The folder that stands for the framework's side of files")
      ->check(existingDirectory())
      ->type_name("DIR");
  command
      ->add_option("--backup", options->backupDir,
                   "The folder of a finished backup, STORE/APPLICATION/ID: its data and its export "
                   "result are served as a restore does, for reading only")
      ->check(existingDirectory())
      ->type_name("DIR")
      ->excludes("--store", "--export-result");
  return [options] { return runStepCommand(*options); };
}

}  // namespace arvl_host
