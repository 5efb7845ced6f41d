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
  FrameworkValues values;  // what has a file is read by readValues()
};

// options has to outlive the app.
void addPluginOptions(CLI::App &command, PluginOptions &options);
// What an export asks for.
void addSelectionOptions(CLI::App &command, PluginOptions &options);

// The values, with the content of the files that are named. Throws std::runtime_error that says what
// is wrong with one.
FrameworkValues readValues(const PluginOptions &options);

// Does nothing if no trace is wanted. Throws std::runtime_error.
void openTrace(const PluginOptions &options, TraceWriter &trace);

std::chrono::milliseconds toMilliseconds(double seconds);

}  // namespace arvl_host

#endif  // ARVL_HOST_CLI_PLUGIN_OPTIONS_H_
