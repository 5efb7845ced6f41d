#include "trace/trace_record.h"

namespace arvl_host {

const char *sideName(Side side) {
  return side == Side::kPlugin ? "plugin" : "framework";
}

const char *sourceName(LogSource source) {
  switch (source) {
    case LogSource::kStdout:
      return "stdout";
    case LogSource::kStderr:
      return "stderr";
    case LogSource::kSyslog:
      return "syslog";
    case LogSource::kHost:
      break;
  }
  return "host";
}

}  // namespace arvl_host
