#include "trace/trace_reader.h"

#include <json/reader.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <exception>
#include <memory>
#include <utility>

#include "step/log_source.h"
#include "step/side.h"
#include "text/hex.h"
#include "text/strict_json.h"
#include "text/utf8.h"

namespace arvl_host {

namespace {

// The file has seconds. Larger values overflow in microseconds.
constexpr double kMaxSeconds = 9e12;

std::unique_ptr<Json::CharReader> makeJsonReader() {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  return std::unique_ptr<Json::CharReader>(builder.newCharReader());
}

bool parseLine(const std::string &text, Json::Value &line) {
  static const std::unique_ptr<Json::CharReader> reader = makeJsonReader();
  try {
    return reader->parse(text.data(), text.data() + text.size(), &line, nullptr) && line.isObject();
  } catch (const std::exception &) {
    return false;  // nested beyond the parser's limit
  }
}

// Reads the members of a line and keeps the first error.
class Members {
 public:
  explicit Members(const Json::Value &line) : line_(line) {}

  bool has(const char *key) const { return line_.isMember(key); }
  const std::string &error() const { return error_; }
  bool fine() const { return error_.empty(); }

  std::string string(const char *key) {
    const Json::Value &value = member(key, &Json::Value::isString, "a string");
    return value.isString() ? restoreBytes(std::string_view(value.asString())) : std::string();
  }

  std::int64_t number(const char *key) {
    const Json::Value &value = member(key, &Json::Value::isInt64, "a whole number");
    return value.isInt64() ? value.asInt64() : 0;
  }

  std::uint64_t size(const char *key) {
    const Json::Value &value = member(key, &Json::Value::isUInt64, "a whole number from 0 up");
    return value.isUInt64() ? value.asUInt64() : 0;
  }

  int integer(const char *key) {
    const Json::Value &value = member(key, &Json::Value::isInt, "a whole number");
    return value.isInt() ? value.asInt() : 0;
  }

  bool boolean(const char *key) {
    const Json::Value &value = member(key, &Json::Value::isBool, "true or false");
    return value.isBool() && value.asBool();
  }

  std::int64_t seconds(const char *key) {
    const Json::Value &value = member(key, &Json::Value::isNumeric, "a number");
    const double seconds = value.isNumeric() ? value.asDouble() : 0;
    if (std::abs(seconds) > kMaxSeconds) {
      complain(key, "is out of range");
      return 0;
    }
    return std::llround(seconds * 1e6);
  }

  TraceTime time() { return {seconds("time"), seconds("elapsed")}; }

  std::vector<std::string> strings(const char *key) {
    std::vector<std::string> strings;
    for (const Json::Value &value : member(key, &Json::Value::isArray, "an array of strings")) {
      if (!value.isString()) {
        complain(key, "is not an array of strings");
        break;
      }
      strings.push_back(restoreBytes(std::string_view(value.asString())));
    }
    return strings;
  }

  Side side(const char *key) {
    const std::string name = string(key);
    for (const Side side : {Side::kPlugin, Side::kFramework}) {
      if (name == sideName(side)) {
        return side;
      }
    }
    complain(key, "is neither \"plugin\" nor \"framework\"");
    return Side::kPlugin;
  }

  LogSource source(const char *key) {
    const std::string name = string(key);
    for (const LogSource source :
         {LogSource::kStdout, LogSource::kStderr, LogSource::kSyslog, LogSource::kHost}) {
      if (name == sourceName(source)) {
        return source;
      }
    }
    complain(key, "is no known source of log lines");
    return LogSource::kHost;
  }

  std::string bytes(const char *key) {
    std::string bytes;
    if (!fromHex(string(key), bytes)) {
      complain(key, "is not hexadecimal");
    }
    return bytes;
  }

  Payload payload() {
    if (has("payload")) {
      return {Payload::Form::kJson, restoreBytes(line_["payload"]), {}};
    }
    if (has("payload_text")) {
      return {Payload::Form::kText, {}, string("payload_text")};
    }
    if (has("payload_begin")) {
      return {Payload::Form::kAbbreviated, {}, string("payload_begin")};
    }
    return {};
  }

 private:
  const Json::Value &member(const char *key, bool (Json::Value::*isRight)() const,
                            const char *what) {
    const Json::Value &value = line_[key];
    if (!has(key)) {
      complain(key, "is missing");
    } else if (!(value.*isRight)()) {
      complain(key, std::string("is not ") + what);
    }
    return (value.*isRight)() ? value : Json::Value::nullSingleton();
  }

  void complain(const char *key, const std::string &what) {
    if (error_.empty()) {
      error_ = std::string("\"") + key + "\" " + what;
    }
  }

  const Json::Value &line_;
  std::string error_;
};

// ---- One function for each kind of line. Braced initialisers are evaluated in order, so the error names
// the first wrong member of the line.

StepStart stepStart(Members &line) {
  return {line.time(), line.string("step"), line.string("plugin"), line.string("framework_version"),
          line.number("pid")};
}

PacketRecord packet(Members &line) {
  PacketRecord packet;
  packet.time = line.time();
  packet.from = line.side("from");
  packet.name = line.string("name");
  packet.type = line.integer("type");
  packet.bytes = line.size("bytes");
  packet.verdict.valid = line.boolean("valid");
  if (line.has("rule_book")) {
    packet.verdict.lines = line.strings("rule_book");
  }
  packet.payload = line.payload();
  return packet;
}

GarbageRecord garbage(Members &line) {
  return {line.time(), line.side("from"), line.string("reason"), line.size("bytes"),
          line.bytes("hex")};
}

LogRecord logRecord(Members &line) {
  return {line.time(), line.source("source"), line.size("bytes"), line.string("text")};
}

StepEnd stepEnd(Members &line) {
  return {line.time(), line.string("step"), line.string("outcome"), line.integer("exit_code"),
          line.seconds("seconds")};
}

// Returns false and sets `error` if the line is not a record.
bool parseRecord(const Json::Value &json, TraceRecord &record, std::string &error) {
  Members line(json);
  const std::string kind = line.string("kind");
  if (kind == "packet") {
    record = packet(line);
  } else if (kind == "log") {
    record = logRecord(line);
  } else if (kind == "step") {
    record = stepStart(line);
  } else if (kind == "end") {
    record = stepEnd(line);
  } else if (kind == "garbage") {
    record = garbage(line);
  } else if (line.fine()) {
    error = "no kind of line is called \"" + visibleText(kind) + "\"";
    return false;
  }
  error = line.error();
  return line.fine();
}

}  // namespace

bool TraceReader::open(const std::string &file) {
  file_ = file;
  in_.open(file, std::ios::binary);
  if (!in_ || in_.peek() == std::ifstream::traits_type::eof()) {
    const bool isEmpty = in_.is_open() && !in_.bad();
    error_ = file + ": " + (isEmpty ? "is empty" : std::strerror(errno));
    return false;
  }
  Json::Value json;
  const LineStatus status = readLine(json);
  Members line(json);
  if (status != LineStatus::kLine || !json["kind"].isString() || json["kind"] != "trace") {
    return fail("this is no trace: a trace begins with a line of kind \"trace\"");
  }
  header_.format = line.integer("format");
  if (line.fine() && header_.format > kTraceFormat) {
    return fail("the trace has format " + std::to_string(header_.format) +
                ", which is newer than this program knows (" + std::to_string(kTraceFormat) + ")");
  }
  header_.time = line.time();
  header_.tool = line.string("tool");
  return line.fine() || fail(line.error());
}

TraceReader::Status TraceReader::next(TraceRecord &record) {
  Json::Value json;
  switch (readLine(json)) {
    case LineStatus::kEnd:
      return Status::kEnd;
    case LineStatus::kCut:
      endsInsideLine_ = true;
      return Status::kEnd;
    case LineStatus::kNotJson:
      fail("the line is not a JSON object");
      return Status::kError;
    case LineStatus::kLine:
      break;
  }
  std::string what;
  if (!parseRecord(json, record, what)) {
    fail(what);
    return Status::kError;
  }
  return Status::kRecord;
}

TraceReader::LineStatus TraceReader::readLine(Json::Value &line) {
  std::string text;
  if (!std::getline(in_, text)) {
    return LineStatus::kEnd;
  }
  ++lineNumber_;
  if (parseLine(text, line)) {
    return LineStatus::kLine;
  }
  line = Json::Value(Json::objectValue);
  return in_.eof() ? LineStatus::kCut : LineStatus::kNotJson;
}

bool TraceReader::fail(const std::string &what) {
  error_ = file_ + ":" + std::to_string(lineNumber_) + ": " + what;
  return false;
}

bool readTrace(const std::string &file, Trace &trace, std::string &error) {
  TraceReader reader;
  trace = Trace();
  TraceReader::Status status = TraceReader::Status::kError;
  if (reader.open(file)) {
    trace.header = reader.header();
    TraceRecord record;
    while ((status = reader.next(record)) == TraceReader::Status::kRecord) {
      trace.records.push_back(std::move(record));
    }
  }
  trace.endsInsideLine = reader.endsInsideLine();
  error = reader.error();
  return status == TraceReader::Status::kEnd;
}

}  // namespace arvl_host
