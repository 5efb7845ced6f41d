// The options of the commands that run a plug-in.
#ifndef ARVL_HOST_CLI_PLUGIN_OPTIONS_H_
#define ARVL_HOST_CLI_PLUGIN_OPTIONS_H_

#include <CLI/App.hpp>
#include <chrono>
#include <string>

#include "framework/framework.h"
#include "trace/trace_writer.h"

namespace arvl_host {

struct PluginOptions {
  std::string pluginDir;
  std::string frameworkVersion = "2.3";
  double timeout = 600;  // seconds
  double grace = 5;      // seconds
  std::string exportConfigFile;
  std::string traceFile;
  bool traceFull = false;
  FrameworkValues values;  // without those in files: see readValues()
};

// `options` must outlive the app.
void addPluginOptions(CLI::App &command, PluginOptions &options);
// Adds the options that only an export uses.
void addSelectionOptions(CLI::App &command, PluginOptions &options);

// Returns the values, including those in files. Throws std::runtime_error, which names the file.
FrameworkValues readValues(const PluginOptions &options);

// Opens the trace if --trace is given. Throws std::runtime_error.
void openTrace(const PluginOptions &options, TraceWriter &trace);

std::chrono::milliseconds toMilliseconds(double seconds);

}  // namespace arvl_host

#endif  // ARVL_HOST_CLI_PLUGIN_OPTIONS_H_
