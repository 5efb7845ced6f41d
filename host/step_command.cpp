#include "step_command.h"

#include <json/reader.h>
#include <json/value.h>
#include <unistd.h>

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

#include "display/plugin_line.h"
#include "framework.h"
#include "step_runner.h"
#include "store.h"
#include "trace/trace_text.h"
#include "trace/trace_writer.h"
#include "tracing_listener.h"
#include "zarn/arvlapp/agent.h"

namespace arvl_host {

namespace {

using ZARN::ARVLAPP::Agent;

struct StepOptions {
  std::string step;
  std::string pluginDir;
  std::string frameworkVersion = "2.3";
  double timeout = 600;  // seconds
  double grace = 5;      // seconds

  std::string exportConfigFile;
  std::string exportResultFile;
  std::string storeDir;
  std::string traceFile;
  bool traceFull = false;
  FrameworkValues values;
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
  void onPacket(Side, std::uint16_t, std::string_view, const Verdict &) override {}
  void onGarbage(Side, std::string_view bytes, const std::string &reason) override {
    std::cout << "[host] " << reason << "; the bytes begin with " << toHex(bytes) << '\n';
  }
};

std::string valueText(const Json::Value &value) {
  if (value.isString()) {
    return visibleText(value.asString());
  }
  std::string text;
  appendJson(text, value, JsonLayout::kCompact);
  return text;
}

// One line a member; those of an object within stand below it by their path.
void printMembers(const Json::Value &object, const std::string &prefix) {
  for (const std::string &key : object.getMemberNames()) {
    if (object[key].isObject()) {
      printMembers(object[key], prefix + key + ".");
    } else {
      std::cout << "  " << visibleText(prefix + key) << ": " << valueText(object[key]) << '\n';
    }
  }
}

void printResult(const std::string &step, const StepResult &result) {
  if (result.completion.isObject()) {
    std::cout << "completion:\n";
    printMembers(result.completion, "");
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

std::chrono::milliseconds toMilliseconds(double seconds) {
  return std::chrono::milliseconds(static_cast<long long>(seconds * 1000));
}

// The path of the step's executable, or an error that names it.
std::string findExecutable(const StepOptions &options) {
  const std::filesystem::path path = std::filesystem::absolute(options.pluginDir) / options.step;
  std::error_code error;
  if (!std::filesystem::exists(path, error)) {
    throw CLI::ValidationError(
        "--plugin", path.string() + " does not exist: the plug-in has no executable for this step");
  }
  if (!std::filesystem::is_regular_file(path, error) || access(path.c_str(), X_OK) != 0) {
    throw CLI::ValidationError("--plugin", path.string() + " is not an executable file");
  }
  return path;
}

Json::Value readJson(const std::string &file) {
  std::ifstream stream(file);
  Json::Value value;
  std::string errors;
  if (!stream) {
    throw std::runtime_error("cannot open " + file + ": " + std::strerror(errno));
  }
  bool isJson = false;
  try {
    isJson = Json::parseFromStream(Json::CharReaderBuilder(), stream, &value, &errors);
  } catch (const Json::Exception &error) {  // nested too deep
    errors = error.what();
  }
  if (!isJson) {
    throw std::runtime_error(file + " is not JSON:\n" + errors);
  }
  return value;
}

Json::Value readExportResult(const std::string &file) {
  const Json::Value content = readJson(file);
  try {
    return makeExportResult(content);
  } catch (const std::runtime_error &error) {
    throw std::runtime_error(file + ": " + error.what());
  }
}

void showProgress(const std::string &stage, int percentage) {
  std::cout << "[progress] " << percentage << " % " << visibleText(stage) << '\n' << std::flush;
}

void openTrace(const StepOptions &options, TraceWriter &trace) {
  if (options.traceFile.empty()) {
    return;
  }
  TraceWriter::Options writing;
  writing.full = options.traceFull;
  writing.onError = [](const std::string &error) { std::cerr << "arvl-host: " << error << '\n'; };
  std::string error;
  if (!trace.open(options.traceFile, "arvl-host " ARVL_VERSION, writing, error)) {
    throw std::runtime_error(error);
  }
}

int runStepCommand(const StepOptions &options) {
  StepRequest request;
  request.step = options.step;
  request.executable = findExecutable(options);
  request.frameworkVersion = options.frameworkVersion;
  request.timeout = toMilliseconds(options.timeout);
  request.grace = toMilliseconds(options.grace);

  FrameworkValues values = options.values;
  if (!options.exportConfigFile.empty()) {
    values.exportConfig = readJson(options.exportConfigFile);
  }
  if (!options.exportResultFile.empty()) {
    values.exportResult = readExportResult(options.exportResultFile);
  }
  std::optional<Store> store;
  if (!options.storeDir.empty()) {
    store.emplace(options.storeDir);
  }
  Framework framework(values, store ? &*store : nullptr, showProgress);

  Display display;
  TraceWriter trace;
  openTrace(options, trace);
  TracingListener listener(display, trace);
  const StepResult result = runStep(request, framework, listener);
  trace.stepEnded(outcomeText(result.outcome), exitCodeOf(result.outcome));
  printResult(options.step, result);
  return exitCodeOf(result.outcome);
}

// CLI::Range lets NaN pass, which is neither below nor above anything.
std::string checkSeconds(const std::string &text) {
  char *end = nullptr;
  const double seconds = std::strtod(text.c_str(), &end);
  const bool isNumber = !text.empty() && *end == '\0';
  return isNumber && seconds >= 0.001 && seconds <= 1e6
             ? ""
             : "a time is a number of seconds from 0.001 to 1000000, not \"" + text + "\"";
}

std::string checkVersion(const std::string &text) {
  const std::size_t dot = text.find('.');
  const auto isNumber = [](const std::string &part) {
    return !part.empty() && part.size() < 10 &&
           part.find_first_not_of("0123456789") == std::string::npos;
  };
  if (dot == std::string::npos || !isNumber(text.substr(0, dot)) ||
      !isNumber(text.substr(dot + 1))) {
    return "a framework version is two numbers joined by a full stop, such as 2.3, not \"" + text +
           "\"";
  }
  return "";
}

constexpr const char *kExitCodes =
    "Exit codes:\n"
    "  0    the step succeeded\n"
    "  1    the plug-in reported failure\n"
    "  2    wrong usage, or the plug-in could not be started\n"
    "  3    the plug-in broke the protocol; the rule-book lines are shown\n"
    "  4    time-out; also when the plug-in completes and does not end\n"
    "  5    the plug-in crashed, even after its completion, or sent no completion\n"
    "  130  interrupted\n"
    "A completion decides even if the plug-in then exits with another status than 0.\n"
    "Ctrl-C closes the socket, which is how a plug-in is canceled; a second one kills it.\n";

}  // namespace

std::function<int()> addStepCommand(CLI::App &app) {
  auto options = std::make_shared<StepOptions>();
  CLI::App *command =
      app.add_subcommand("step", "Run one step of a plug-in as the framework would");
  command->footer(kExitCodes);
  command->add_option("name", options->step, "The step")
      ->required()
      ->check(CLI::IsMember({Agent::PLUGIN_NAME_SUMMARY, Agent::PLUGIN_NAME_ESTIMATE_EXPORTION,
                             Agent::PLUGIN_NAME_CAN_EXPORT, Agent::PLUGIN_NAME_EXPORT,
                             Agent::PLUGIN_NAME_CAN_IMPORT, Agent::PLUGIN_NAME_IMPORT}));
  command->add_option("--plugin", options->pluginDir, "The folder of the plug-in's executables")
      ->required()
      ->check(CLI::ExistingDirectory)
      ->type_name("DIR");
  command
      ->add_option("--framework-version", options->frameworkVersion,
                   "The version that the plug-in is told")
      ->check(CLI::Validator(checkVersion, "M.N"))
      ->type_name("")
      ->capture_default_str();
  command->add_option("--timeout", options->timeout, "For the whole step, in seconds")
      ->check(CLI::Validator(checkSeconds, ""))
      ->type_name("SECONDS")
      ->capture_default_str();
  command
      ->add_option("--grace", options->grace,
                   "Between closing the socket, TERM and KILL to the process group, in seconds")
      ->check(CLI::Validator(checkSeconds, ""))
      ->type_name("SECONDS")
      ->capture_default_str();
  command
      ->add_option("--export-config", options->exportConfigFile,
                   "What the plug-in is told of this export: any JSON value (default: {})")
      ->check(CLI::ExistingFile)
      ->type_name("FILE");
  command->add_option("--language", options->values.language, "The code of the user's language")
      ->type_name("CODE")
      ->capture_default_str();
  command
      ->add_option("--folder", options->values.folders,
                   "A folder that the user selected; repeatable")
      ->allow_extra_args(false)
      ->type_name("NAME");
  command
      ->add_option("--app", options->values.apps,
                   "An application that the user selected; repeatable")
      ->allow_extra_args(false)
      ->type_name("NAME");
  command
      ->add_option(
          "--export-result", options->exportResultFile,
          "The record of the export, for an import: a JSON object with \"export_result\" and "
          "perhaps \"external_handler_result\", or the export result alone, such as "
          "{\"success\": true, \"app_data_version\": \"1.0\"}")
      ->check(CLI::ExistingFile)
      ->type_name("FILE");
  command
      ->add_option("--store", options->storeDir,
                   "The folder that stands for the framework's side of files")
      ->check(CLI::ExistingDirectory)
      ->type_name("DIR");
  command->add_option("--list-page", options->values.listPage, "Entries a page of a listing")
      ->check(CLI::Range(1, 1000000))
      ->type_name("N")
      ->capture_default_str();
  command->add_option("--trace", options->traceFile, "Write every packet and log line to this file")
      ->type_name("FILE");
  command->add_flag("--trace-full", options->traceFull, "Abbreviate no payload in the trace");
  return [options] { return runStepCommand(*options); };
}

}  // namespace arvl_host
