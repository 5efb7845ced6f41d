// What a plug-in says beside its packets, as a person reads it.
#ifndef ARVL_HOST_DISPLAY_PLUGIN_LINE_H_
#define ARVL_HOST_DISPLAY_PLUGIN_LINE_H_

#include <string>

#include "step/step_runner.h"

namespace arvl_host {

// "[stdout] text", "[syslog err] text": one line for a terminal, without a line feed.
std::string pluginLineText(const PluginLine &line);

}  // namespace arvl_host

#endif  // ARVL_HOST_DISPLAY_PLUGIN_LINE_H_
