#include "trace/trace_writer.h"

#include <fcntl.h>
#include <json/value.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "protocol/packet_table.h"
#include "step/log_source.h"
#include "step/payload_parser.h"
#include "step/side.h"
#include "text/dates.h"
#include "text/hex.h"
#include "text/json_line.h"
#include "text/utf8.h"

namespace arvl_host {

namespace {

constexpr std::uint64_t kFrameHeaderSize = 8;

TraceWriter::Now systemNow() {
  const auto steady = std::chrono::steady_clock::now().time_since_epoch();
  return {microsecondsNow(), std::chrono::duration_cast<std::chrono::microseconds>(steady).count()};
}

// Any 16-bit number may come from the wire.
std::string nameInTrace(std::uint16_t type) {
  const ZARN::ARVLAPP::PacketInfo *packet = ZARN::ARVLAPP::findPacket(type);
  return packet != nullptr ? packet->name : "unknown";
}

// Returns whether every byte was written. Sets errno otherwise.
bool writeAll(int file, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(file, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written < 0) {
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

std::string cannotWrite(const std::string &file, int error) {
  return "cannot write the trace " + file + ": " + std::strerror(error);
}

// Begins a line with the members that every line has.
JsonLine lineOf(const char *kind, const TraceTime &time) {
  JsonLine line;
  line.string("kind", kind).seconds("time", time.wall).seconds("elapsed", time.elapsed);
  return line;
}

}  // namespace

TraceWriter::~TraceWriter() {
  close();
}

bool TraceWriter::open(const std::string &file, const std::string &tool, const Options &options,
                       std::string &error) {
  close();
  const int opened = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (opened < 0) {
    error = cannotWrite(file, errno);
    return false;
  }
  file_ = opened;
  name_ = file;
  options_ = options;
  if (!options_.clock) {
    options_.clock = systemNow;
  }
  begin_ = options_.clock().steady;
  return append(lineOf("trace", now()).number("format", kTraceFormat).string("tool", tool), error);
}

void TraceWriter::close() {
  if (file_ < 0) {
    return;
  }
  const int file = file_;
  file_ = -1;
  if (::close(file) != 0) {
    report(cannotWrite(name_, errno));
  }
}

void TraceWriter::stepStarted(const std::string &step, const std::string &plugin,
                              const std::string &frameworkVersion, std::int64_t pid) {
  if (file_ < 0) {
    return;
  }
  const TraceTime time = now();
  step_ = step;
  stepBegin_ = time.elapsed;
  write(lineOf("step", time)
            .string("step", step)
            .string("plugin", plugin)
            .string("framework_version", frameworkVersion)
            .number("pid", pid));
}

void TraceWriter::packet(Side from, std::uint16_t type, std::string_view payload,
                         const Verdict &verdict) {
  if (file_ < 0) {
    return;
  }
  JsonLine line = lineOf("packet", now());
  line.string("from", sideName(from)).string("name", nameInTrace(type)).number("type", type);
  line.number("bytes", static_cast<std::int64_t>(kFrameHeaderSize + payload.size()));
  line.boolean("valid", verdict.valid);
  if (!verdict.lines.empty()) {
    line.strings("rule_book", verdict.lines);
  }
  addPayload(line, payload);
  write(line);
}

// Adds the payload as JSON if possible, so that a trace can be searched.
void TraceWriter::addPayload(JsonLine &line, std::string_view payload) const {
  const std::string_view shown = abbreviate(payload);
  Json::Value value;
  std::string error;
  if (payload.empty()) {
    return;
  }
  if (shown.size() < payload.size()) {
    line.string("payload_begin", shown);
  } else if (parsePayload(payload, value, error) != PayloadStatus::kParsed ||
             !line.json("payload", value)) {
    line.string("payload_text", payload);
  }
}

void TraceWriter::garbage(Side from, std::string_view bytes, const std::string &reason) {
  if (file_ < 0) {
    return;
  }
  write(lineOf("garbage", now())
            .string("from", sideName(from))
            .string("reason", reason)
            .number("bytes", static_cast<std::int64_t>(bytes.size()))
            .string("hex", toHex(abbreviate(bytes))));
}

void TraceWriter::log(LogSource source, std::string_view text) {
  if (file_ < 0) {
    return;
  }
  write(lineOf("log", now())
            .string("source", sourceName(source))
            .number("bytes", static_cast<std::int64_t>(text.size()))
            .string("text", abbreviate(text)));
}

void TraceWriter::stepEnded(const std::string &outcome, int exitCode) {
  if (file_ < 0) {
    return;
  }
  const TraceTime time = now();
  write(lineOf("end", time)
            .string("step", step_)
            .string("outcome", outcome)
            .number("exit_code", exitCode)
            .seconds("seconds", time.elapsed - stepBegin_));
}

TraceTime TraceWriter::now() const {
  const Now reading = options_.clock();
  return {reading.wall, reading.steady - begin_};
}

std::string_view TraceWriter::abbreviate(std::string_view bytes) const {
  return options_.full || bytes.size() <= kAbbreviateAbove ? bytes : cutText(bytes, kAbbreviateTo);
}

// Removes an incomplete line after a failed write, so that the trace ends with a complete one. If that fails
// too, readers accept a last line that is cut.
bool TraceWriter::append(JsonLine &line, std::string &error) {
  const off_t end = ::lseek(file_, 0, SEEK_CUR);
  if (writeAll(file_, line.finish("\n"))) {
    return true;
  }
  error = cannotWrite(name_, errno);
  const bool restored = end >= 0 && ::ftruncate(file_, end) == 0;
  static_cast<void>(restored);
  ::close(file_);
  file_ = -1;
  return false;
}

void TraceWriter::write(JsonLine &line) {
  std::string error;
  if (!append(line, error)) {
    report(error + "; it ends here");
  }
}

void TraceWriter::report(const std::string &error) const {
  if (options_.onError) {
    options_.onError(error);
  }
}

}  // namespace arvl_host
