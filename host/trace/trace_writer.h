// Writes the trace of a job: every packet, log line and step, one JSON object a line, as it happens.
#ifndef ARVL_HOST_TRACE_TRACE_WRITER_H_
#define ARVL_HOST_TRACE_TRACE_WRITER_H_

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "trace/trace_record.h"

namespace arvl_host {

// Payloads, log lines and garbage above the first size are cut to the second.
constexpr std::size_t kAbbreviateAbove = 65536;
constexpr std::size_t kAbbreviateTo = 4096;

// Every call is allowed at any time and does nothing while no file is open, so the code that is traced
// need not ask whether it is. Each line is in the file, whole, when its call returns: whatever becomes
// of the host. A trace that cannot be written any further is given up, which is reported once and never
// stops the job. One thread.
class TraceWriter {
 public:
  // Microseconds since the epoch, and by a clock that nobody sets.
  struct Now {
    std::int64_t wall;
    std::int64_t steady;
  };

  struct Options {
    bool full = false;                                 // abbreviate nothing
    std::function<void(const std::string &)> onError;  // hears why the trace was given up
    std::function<Now()> clock;                        // the system's if none is given
  };

  TraceWriter() = default;
  ~TraceWriter();
  TraceWriter(const TraceWriter &) = delete;
  TraceWriter &operator=(const TraceWriter &) = delete;

  // Begins a trace, replacing what the file held. tool is the writing program with its version. The
  // file is for its owner alone: it holds what the packets held. On failure returns false and says why;
  // onError does not hear of it.
  bool open(const std::string &file, const std::string &tool, const Options &options,
            std::string &error);
  void close();

  void stepStarted(const std::string &step, const std::string &plugin,
                   const std::string &frameworkVersion, std::int64_t pid);

  // One packet as it crossed the wire: the type of its header, and its payload, which may be any bytes.
  void packet(Side from, std::uint16_t type, std::string_view payload, const Verdict &verdict = {});

  // Bytes that make no packet, and why not: a wrong check code, say, or the end of the connection.
  void garbage(Side from, std::string_view bytes, const std::string &reason);

  // One line without its line feed.
  void log(LogSource source, std::string_view text);

  // Ends the step that was started last.
  void stepEnded(const std::string &outcome, int exitCode);

 private:
  class Line;

  TraceTime now() const;
  std::string_view abbreviate(std::string_view bytes) const;
  void addPayload(Line &line, std::string_view payload) const;
  bool append(Line &line, std::string &error);
  void write(Line &line);
  void report(const std::string &error) const;

  int file_ = -1;
  std::string name_;
  Options options_;
  std::int64_t begin_ = 0;
  std::int64_t stepBegin_ = 0;
  std::string step_;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_TRACE_TRACE_WRITER_H_
