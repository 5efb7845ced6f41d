// The log lines of the library, formatted in full (so that a bad argument is met) and counted. Linking
// this file puts functions of its own into the fuzzer, in front of the C library's.
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
