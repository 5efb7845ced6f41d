#include "cli/plugin_options.h"

#include <json/reader.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <stdexcept>

namespace arvl_host {

namespace {

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

}  // namespace

CLI::Validator existingFile() {
  return CLI::Validator(CLI::ExistingFile).description("");
}

CLI::Validator existingDirectory() {
  return CLI::Validator(CLI::ExistingDirectory).description("");
}

CLI::Validator notEmpty() {
  return CLI::Validator(
      [](const std::string &text) { return std::string(text.empty() ? "the value is empty" : ""); },
      "");
}

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
      ->check(CLI::Validator(checkVersion, ""))
      ->type_name("M.N")
      ->capture_default_str();
  command.add_option("--timeout", options.timeout, "For each step, in seconds")
      ->check(CLI::Validator(checkSeconds, ""))
      ->type_name("SECONDS")
      ->capture_default_str();
  command
      .add_option("--grace", options.grace,
                  "Between closing the socket, TERM and KILL to the process group, in seconds")
      ->check(CLI::Validator(checkSeconds, ""))
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
    values.exportConfig = readJson(options.exportConfigFile);
    try {
      checkFitsPacket(values.exportConfig);
    } catch (const std::runtime_error &error) {
      throw std::runtime_error(options.exportConfigFile + ": " + error.what());
    }
  }
  return values;
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
