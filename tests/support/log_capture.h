// The log lines of the library, taken where it hands them to syslog: linking this file puts
// functions of its own into the test program, in front of the C library's.
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

// "agent.cpp: Error: reinit", a record without its line number; a priority other than LOG_ERR and a
// missing prefix are shown, so that no expectation overlooks them.
using LogLines = std::vector<std::string>;

LogLines toLines(const std::vector<LogRecord> &records);

// Collects what is logged, by any thread, from construction on. One at a time.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture &) = delete;
  LogCapture &operator=(const LogCapture &) = delete;

  // What has been logged since construction or the last take; empties the collection.
  std::vector<LogRecord> takeRecords();
  LogLines take();
};

}  // namespace arvl_test

#endif  // ARVL_TESTS_SUPPORT_LOG_CAPTURE_H_
