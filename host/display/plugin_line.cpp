#include "display/plugin_line.h"

#include <syslog.h>

#include "step/log_source.h"
#include "text/utf8.h"

namespace arvl_host {

namespace {

// Returns the name that syslog's own tools use.
const char *priorityName(int priority) {
  static constexpr const char *kNames[] = {"emerg",   "alert",  "crit", "err",
                                           "warning", "notice", "info", "debug"};
  return kNames[LOG_PRI(priority)];
}

}  // namespace

std::string pluginLineText(const PluginLine &line) {
  std::string source = sourceName(line.source);
  if (line.source == LogSource::kSyslog) {
    source.append(" ").append(priorityName(line.priority));
  }
  return "[" + source + "] " + visibleText(line.text);
}

}  // namespace arvl_host
