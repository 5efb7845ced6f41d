// Reads a trace back, record by record. docs/trace.md describes the file.
#ifndef ARVL_HOST_TRACE_TRACE_READER_H_
#define ARVL_HOST_TRACE_TRACE_READER_H_

#include <json/forwards.h>

#include <cstddef>
#include <fstream>
#include <string>
#include <vector>

#include "trace/trace_record.h"

namespace arvl_host {

class TraceReader {
 public:
  enum class Status { kRecord, kEnd, kError };

  // Opens a trace and reads its header. On failure returns false, and error() says why.
  bool open(const std::string &file);

  const TraceHeader &header() const { return header_; }

  // The next record, after a successful open(). Nothing can be read after kEnd or kError.
  Status next(TraceRecord &record);

  // "FILE:LINE: what is wrong there", after a failure.
  const std::string &error() const { return error_; }

  // At the end: whether the last line is cut, as a host leaves it that died while it wrote. The line is
  // left out.
  bool endsInsideLine() const { return endsInsideLine_; }

 private:
  enum class LineStatus { kLine, kEnd, kCut, kNotJson };

  LineStatus readLine(Json::Value &line);
  bool fail(const std::string &what);

  std::ifstream in_;
  std::string file_;
  std::size_t lineNumber_ = 0;
  TraceHeader header_;
  std::string error_;
  bool endsInsideLine_ = false;
};

// A whole trace in memory.
struct Trace {
  TraceHeader header;
  std::vector<TraceRecord> records;
  bool endsInsideLine = false;
};

bool readTrace(const std::string &file, Trace &trace, std::string &error);

}  // namespace arvl_host

#endif  // ARVL_HOST_TRACE_TRACE_READER_H_
