// A plug-in started as the framework starts it, with every channel to it.
#ifndef ARVL_HOST_STEP_PLUGIN_PROCESS_H_
#define ARVL_HOST_STEP_PLUGIN_PROCESS_H_

#include <sys/types.h>

#include <string>

#include "files/unique_fd.h"

namespace arvl_host {

struct PluginProcess {
  pid_t pid = -1;     // also the number of its process group
  UniqueFd socket;    // the framework's end; non-blocking, as the channels below
  UniqueFd output;    // its stdout
  UniqueFd error;     // its stderr
  UniqueFd logLines;  // its syslog, see log_channel.h; a datagram each
};

// Lets the host open as many descriptors as the system allows it: each level of a folder that is copied takes
// some. Plug-ins keep the limit that there was.
void raiseDescriptorLimit();

// Runs executable with "-f" and "-v", in a process group of its own, with the default signal
// dispositions. It inherits the socket, stdin (empty), stdout, stderr and the log channel, and nothing
// else. Throws std::runtime_error that says what failed.
PluginProcess startPlugin(const std::string &executable, const std::string &frameworkVersion);

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_PLUGIN_PROCESS_H_
