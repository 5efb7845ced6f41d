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
  command.add_option("--plugin", options.pluginDir, "The folder of the plug-in's executables")
      ->required()
      ->check(existingDirectory())
      ->type_name("DIR");
  command
      .add_option("--framework-version", options.frameworkVersion,
                  "The version that the plug-in is told")
      ->check(frameworkVersion())
      ->type_name("M.N")
      ->capture_default_str();
  command.add_option("--timeout", options.timeout, "For each step, in seconds")
      ->check(seconds())
      ->type_name("SECONDS")
      ->capture_default_str();
  command
      .add_option("--grace", options.grace,
                  "Between closing the socket, TERM and KILL to the process group, in seconds")
      ->check(seconds())
      ->type_name("SECONDS")
      ->capture_default_str();
  command.add_option("--language", options.values.language, "The code of the user's language")
      ->type_name("CODE")
      ->capture_default_str();
  command
      .add_option("--list-page", options.values.listPage,
                  "Entries a page of a listing, at most 1000000")
      ->check(CLI::Validator(CLI::Range(1, 1000000)).description(""))
      ->type_name("N")
      ->capture_default_str();
  command.add_option("--trace", options.traceFile, "Write every packet and log line to this file")
      ->check(notEmpty())
      ->type_name("FILE");
  command.add_flag("--trace-full", options.traceFull, "Abbreviate no payload in the trace")
      ->needs("--trace");
}

void addSelectionOptions(CLI::App &command, PluginOptions &options) {
  command
      .add_option("--export-config", options.exportConfigFile,
                  "What the plug-in is told of this export: any JSON value (default: {})")
      ->check(existingFile())
      ->type_name("FILE");
  command
      .add_option("--folder", options.values.folders, "A folder that the user selected; repeatable")
      ->allow_extra_args(false)
      ->type_name("NAME");
  command
      .add_option("--app", options.values.apps, "An application that the user selected; repeatable")
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
