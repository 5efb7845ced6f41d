// The sources of log lines.
#ifndef ARVL_HOST_STEP_LOG_SOURCE_H_
#define ARVL_HOST_STEP_LOG_SOURCE_H_

namespace arvl_host {

enum class LogSource { kStdout, kStderr, kSyslog, kHost };

// Returns the name that traces show: "stdout", "syslog".
const char *sourceName(LogSource source);

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_LOG_SOURCE_H_
