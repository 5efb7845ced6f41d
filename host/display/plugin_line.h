// Formats the output and log lines of a plug-in for people.
#ifndef ARVL_HOST_DISPLAY_PLUGIN_LINE_H_
#define ARVL_HOST_DISPLAY_PLUGIN_LINE_H_

#include <string>

#include "step/step_runner.h"

namespace arvl_host {

// Returns one line for a terminal, without a line feed: "[stdout] text", "[syslog err] text".
std::string pluginLineText(const PluginLine &line);

}  // namespace arvl_host

#endif  // ARVL_HOST_DISPLAY_PLUGIN_LINE_H_
