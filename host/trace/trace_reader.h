// Reads a trace, record by record. docs/trace.md describes the file.
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

  // Opens a trace and reads its header. Returns false on failure, with the reason in error().
  bool open(const std::string &file);

  const TraceHeader &header() const { return header_; }

  // Reads the next record, after a successful open(). Must not be called again after kEnd or kError.
  Status next(TraceRecord &record);

  // Returns "FILE:LINE: reason" after a failure.
  const std::string &error() const { return error_; }

  // Returns, at the end, whether the last line is incomplete because the host died while it wrote. That line
  // is skipped.
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

// A complete trace in memory.
struct Trace {
  TraceHeader header;
  std::vector<TraceRecord> records;
  bool endsInsideLine = false;
};

// Reads a complete trace. On failure returns false and sets `error`.
bool readTrace(const std::string &file, Trace &trace, std::string &error);

}  // namespace arvl_host

#endif  // ARVL_HOST_TRACE_TRACE_READER_H_
