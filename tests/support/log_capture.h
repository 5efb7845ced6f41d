// Collects the log lines of the library. Linking this file replaces the C library's syslog in the test
// program.
#ifndef ARVL_TESTS_SUPPORT_LOG_CAPTURE_H_
#define ARVL_TESTS_SUPPORT_LOG_CAPTURE_H_

#include <string>
#include <vector>

namespace arvl_test {

struct LogRecord {
  int priority = 0;
  std::string format;   // as the library passed it, "%s:%d " included
  std::string file;     // "agent.cpp"
  int line = 0;         // of the logging statement
  std::string message;  // what follows the prefix
};

// Records without their line numbers, such as "agent.cpp: Error: reinit". A priority other than LOG_ERR
// and a missing prefix are shown, so that a test notices them.
using LogLines = std::vector<std::string>;

LogLines toLines(const std::vector<LogRecord> &records);

// Collects the lines that any thread logs after construction. Only one may exist at a time.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture &) = delete;
  LogCapture &operator=(const LogCapture &) = delete;

  // Returns the lines since construction or the last take, and removes them from the collection.
  std::vector<LogRecord> takeRecords();
  LogLines take();
};

}  // namespace arvl_test

#endif  // ARVL_TESTS_SUPPORT_LOG_CAPTURE_H_
