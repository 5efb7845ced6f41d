#include "step/log_source.h"

namespace arvl_host {

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
