// The records of a trace. docs/trace.md describes the file.
#ifndef ARVL_HOST_TRACE_TRACE_RECORD_H_
#define ARVL_HOST_TRACE_TRACE_RECORD_H_

#include <json/value.h>

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "step/log_source.h"
#include "step/side.h"
#include "step/verdict.h"

namespace arvl_host {

// Incremented with every change that an older reader would misread.
constexpr int kTraceFormat = 1;

// In microseconds.
struct TraceTime {
  std::int64_t wall = 0;     // since the epoch
  std::int64_t elapsed = 0;  // since the start of the trace, by the monotonic clock
};

struct TraceHeader {
  TraceTime time;
  int format = kTraceFormat;
  std::string tool;
};

struct StepStart {
  TraceTime time;
  std::string step;
  std::string plugin;
  std::string frameworkVersion;
  std::int64_t pid = 0;
};

struct Payload {
  enum class Form {
    kNone,         // the packet has only a header
    kJson,         // value
    kText,         // text that is not JSON
    kAbbreviated,  // text, the beginning of the payload
  };
  Form form = Form::kNone;
  Json::Value value;
  std::string text;
};

struct PacketRecord {
  TraceTime time;
  Side from = Side::kPlugin;
  int type = 0;
  std::string name;
  std::uint64_t bytes = 0;  // of the frame, its header included
  Payload payload;
  Verdict verdict;
};

// Bytes that are not a packet.
struct GarbageRecord {
  TraceTime time;
  Side from = Side::kPlugin;
  std::string reason;
  std::uint64_t bytes = 0;
  std::string data;  // the first of them
};

struct LogRecord {
  TraceTime time;
  LogSource source = LogSource::kHost;
  std::uint64_t bytes = 0;
  std::string text;  // the beginning of the line
};

struct StepEnd {
  TraceTime time;
  std::string step;
  std::string outcome;
  int exitCode = 0;
  std::int64_t duration = 0;  // microseconds
};

using TraceRecord = std::variant<StepStart, PacketRecord, GarbageRecord, LogRecord, StepEnd>;

}  // namespace arvl_host

#endif  // ARVL_HOST_TRACE_TRACE_RECORD_H_
