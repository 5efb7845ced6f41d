// Writes the trace of a job: every packet, log line and step as one line of JSON.
#ifndef ARVL_HOST_TRACE_TRACE_WRITER_H_
#define ARVL_HOST_TRACE_TRACE_WRITER_H_

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "trace/trace_record.h"

namespace arvl_host {

class JsonLine;

// Payloads, log lines and garbage above the first size are cut to the second.
constexpr std::size_t kAbbreviateAbove = 65536;
constexpr std::size_t kAbbreviateTo = 4096;

// Owns the file. Every call does nothing while no file is open, so that callers need not check. Each line is
// completely in the file when its call returns, so that it survives a crash of the host. A failed write closes
// the trace, calls `onError` once and does not stop the job. Not thread-safe.
class TraceWriter {
 public:
  // Microseconds since the epoch, and of the monotonic clock.
  struct Now {
    std::int64_t wall;
    std::int64_t steady;
  };

  struct Options {
    bool full = false;                                 // abbreviates nothing
    std::function<void(const std::string &)> onError;  // called with the reason of a failed write
    std::function<Now()> clock;                        // the system clocks if empty
  };

  TraceWriter() = default;
  ~TraceWriter();
  TraceWriter(const TraceWriter &) = delete;
  TraceWriter &operator=(const TraceWriter &) = delete;

  // Begins a trace and replaces the contents of the file. `tool` is the program with its version. A new
  // file is readable by its owner only, as packets may hold secrets. On failure returns false and sets
  // `error`, and does not call `onError`.
  bool open(const std::string &file, const std::string &tool, const Options &options,
            std::string &error);
  void close();

  void stepStarted(const std::string &step, const std::string &plugin,
                   const std::string &frameworkVersion, std::int64_t pid);

  // Records a packet: the type from its header, and its payload, which may be any bytes.
  void packet(Side from, std::uint16_t type, std::string_view payload, const Verdict &verdict = {});

  // Records bytes that are not a packet, with the reason, such as a wrong check code.
  void garbage(Side from, std::string_view bytes, const std::string &reason);

  // Records one line, given without its line feed.
  void log(LogSource source, std::string_view text);

  // Ends the step that was started last.
  void stepEnded(const std::string &outcome, int exitCode);

 private:
  TraceTime now() const;
  std::string_view abbreviate(std::string_view bytes) const;
  void addPayload(JsonLine &line, std::string_view payload) const;
  bool append(JsonLine &line, std::string &error);
  void write(JsonLine &line);
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
