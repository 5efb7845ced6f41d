// Counts the log lines of the library and formats them in full, so that a bad argument is detected. Linking
// this file replaces the C library's syslog in the fuzzer.
#ifndef ARVL_FUZZ_SUPPORT_LOG_SINK_H_
#define ARVL_FUZZ_SUPPORT_LOG_SINK_H_

#include <string>

namespace arvl_fuzz {

class LogSink {
 public:
  static void clear();
  static unsigned lineCount();

  // The last line without its line number, "agent.cpp: Error: reinit", possibly cut; empty when there
  // was none.
  static std::string lastLine();
};

}  // namespace arvl_fuzz

#endif  // ARVL_FUZZ_SUPPORT_LOG_SINK_H_
