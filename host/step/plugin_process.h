// Starts a plug-in the way the framework does, with a channel to each of its streams.
#ifndef ARVL_HOST_STEP_PLUGIN_PROCESS_H_
#define ARVL_HOST_STEP_PLUGIN_PROCESS_H_

#include <sys/types.h>

#include <string>

#include "files/unique_fd.h"

namespace arvl_host {

struct PluginProcess {
  pid_t pid = -1;     // also the number of its process group
  UniqueFd socket;    // the framework's end; non-blocking, like the channels below
  UniqueFd output;    // its stdout
  UniqueFd error;     // its stderr
  UniqueFd logLines;  // its syslog lines, see log_channel.h
};

// Raises the host's limit of open descriptors to the maximum: a copy opens several descriptors for each
// directory level. Plug-ins get the original limit.
void raiseDescriptorLimit();

// Runs executable with "-f" and "-v", in a process group of its own, with the default signal
// dispositions. It inherits the socket, stdin (empty), stdout, stderr and the log channel, and nothing
// else. Throws std::runtime_error that says what failed.
PluginProcess startPlugin(const std::string &executable, const std::string &frameworkVersion);

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_PLUGIN_PROCESS_H_
