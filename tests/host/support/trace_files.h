// Helpers of the trace tests: a temporary file, and a writer with a settable clock.
#ifndef ARVL_TESTS_HOST_SUPPORT_TRACE_FILES_H_
#define ARVL_TESTS_HOST_SUPPORT_TRACE_FILES_H_

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "trace/trace_reader.h"
#include "trace/trace_writer.h"

namespace arvl_test {

class TraceFile {
 public:
  TraceFile() {
    std::string name = testing::TempDir() + "traceXXXXXX";
    const int file = mkstemp(name.data());
    EXPECT_GE(file, 0);
    close(file);
    name_ = name;
  }
  ~TraceFile() { unlink(name_.c_str()); }
  TraceFile(const TraceFile &) = delete;
  TraceFile &operator=(const TraceFile &) = delete;

  const std::string &name() const { return name_; }

  void write(const std::string &content) const {
    std::ofstream(name_, std::ios::binary) << content;
  }

  std::string content() const {
    std::ifstream in(name_, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }

  // Returns the lines without their line feeds.
  std::vector<std::string> lines() const {
    std::ifstream in(name_, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
      lines.push_back(line);
    }
    return lines;
  }

 private:
  std::string name_;
};

// A writer whose clock only the test advances. The trace begins at 1767261845.123456.
struct ClockedWriter {
  explicit ClockedWriter(const std::string &file, bool full = false) {
    arvl_host::TraceWriter::Options options;
    options.full = full;
    options.clock = [this] {
      return arvl_host::TraceWriter::Now{1767261845123456 + now, 77 + now};
    };
    options.onError = [this](const std::string &text) { errors.push_back(text); };
    std::string error;
    opened = writer.open(file, "arvl-host 1.0.0", options, error);
    EXPECT_EQ(error, "");
  }

  std::int64_t now = 0;  // microseconds
  std::vector<std::string> errors;
  bool opened = false;
  arvl_host::TraceWriter writer;
};

inline arvl_host::Trace readBack(const TraceFile &file) {
  arvl_host::Trace trace;
  std::string error;
  EXPECT_TRUE(arvl_host::readTrace(file.name(), trace, error)) << error;
  return trace;
}

}  // namespace arvl_test

#endif  // ARVL_TESTS_HOST_SUPPORT_TRACE_FILES_H_
