#include "cli/plugin_options.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <stdexcept>

#include "cli/json_file.h"
#include "cli/validators.h"

namespace arvl_host {

std::chrono::milliseconds toMilliseconds(double seconds) {
  return std::chrono::milliseconds(static_cast<long long>(seconds * 1000));
}

void addPluginOptions(CLI::App &command, PluginOptions &options) {
  command.add_option("--plugin", options.pluginDir, "Directory of the plug-in's executables")
      ->required()
      ->check(existingDirectory())
      ->type_name("DIR");
  command
      .add_option("--framework-version", options.frameworkVersion,
                  "Framework version reported to the plug-in")
      ->check(frameworkVersion())
      ->type_name("M.N")
      ->capture_default_str();
  command.add_option("--timeout", options.timeout, "Time limit per step, in seconds")
      ->check(seconds())
      ->type_name("SECONDS")
      ->capture_default_str();
  command
      .add_option(
          "--grace", options.grace,
          "Delay between the close of the socket and SIGTERM, and again before SIGKILL, in seconds")
      ->check(seconds())
      ->type_name("SECONDS")
      ->capture_default_str();
  command.add_option("--language", options.values.language, "Language code of the user")
      ->type_name("CODE")
      ->capture_default_str();
  command
      .add_option("--list-page", options.values.listPage,
                  "Entries per page of a directory listing, at most 1000000")
      ->check(CLI::Validator(CLI::Range(1, 1000000)).description(""))
      ->type_name("N")
      ->capture_default_str();
  command.add_option("--trace", options.traceFile, "Write every packet and log line to this file")
      ->check(notEmpty())
      ->type_name("FILE");
  command.add_flag("--trace-full", options.traceFull, "Write payloads to the trace in full")
      ->needs("--trace");
}

void addSelectionOptions(CLI::App &command, PluginOptions &options) {
  command
      .add_option("--export-config", options.exportConfigFile,
                  "Configuration of the export: a file with any JSON value (default: {})")
      ->check(existingFile())
      ->type_name("FILE");
  command
      .add_option("--folder", options.values.folders,
                  "Directory that the user selected; repeatable")
      ->allow_extra_args(false)
      ->type_name("NAME");
  command
      .add_option("--app", options.values.apps, "Application that the user selected; repeatable")
      ->allow_extra_args(false)
      ->type_name("NAME");
}

FrameworkValues readValues(const PluginOptions &options) {
  FrameworkValues values = options.values;
  if (!options.exportConfigFile.empty()) {
    withJsonFile(options.exportConfigFile, [&values](const Json::Value &config) {
      checkFitsPacket(config);
      values.exportConfig = config;
    });
  }
  return values;
}

void openTrace(const PluginOptions &options, TraceWriter &trace) {
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

}  // namespace arvl_host
