#include "trace/trace_reader.h"

#include <gtest/gtest.h>

#include "host/support/trace_files.h"

namespace arvl_host {
namespace {

using arvl_test::ClockedWriter;
using arvl_test::readBack;
using arvl_test::TraceFile;

constexpr char kHeader[] = R"({"kind":"trace","time":1.5,"elapsed":0,"format":1,"tool":"t"})"
                           "\n";
constexpr char kLog[] =
    R"({"kind":"log","time":1.5,"elapsed":0,"source":"host","bytes":1,"text":"x"})"
    "\n";

// Returns the error of reading a file with this content, without the name of the file.
std::string errorOf(const std::string &content) {
  const TraceFile file;
  file.write(content);
  Trace trace;
  std::string error;
  EXPECT_FALSE(readTrace(file.name(), trace, error));
  EXPECT_EQ(error.rfind(file.name() + ":", 0), 0U) << error;
  return error.substr(file.name().size() + 1);
}

std::string errorOfLine(const std::string &line) {
  return errorOf(std::string(kHeader) + line + "\n");
}

TEST(TraceReader, ReadsBackWhatTheWriterWrote) {
  const TraceFile file;
  ClockedWriter trace(file.name());
  trace.now = 1001;
  trace.writer.stepStarted("import", "/p\xff/import", "3.0", 4242);
  trace.writer.packet(Side::kFramework, 8, "{\"a\":[\"\xfe\",1.25]}", {false, {"one", "two \xfd"}});
  trace.writer.garbage(Side::kFramework, std::string_view("\0\xff", 2), "why");
  trace.writer.log(LogSource::kSyslog, "tab\there \xfc");
  trace.now = 2000002;
  trace.writer.stepEnded("failed", 1);

  const Trace read = readBack(file);
  EXPECT_FALSE(read.endsInsideLine);
  EXPECT_EQ(read.header.tool, "arvl-host 1.0.0");
  EXPECT_EQ(read.header.time.wall, 1767261845123456);
  ASSERT_EQ(read.records.size(), 5U);

  const auto &start = std::get<StepStart>(read.records[0]);
  EXPECT_EQ(start.time.wall, 1767261845124457);
  EXPECT_EQ(start.time.elapsed, 1001);
  EXPECT_EQ(start.step, "import");
  EXPECT_EQ(start.plugin, "/p\xff/import");
  EXPECT_EQ(start.frameworkVersion, "3.0");
  EXPECT_EQ(start.pid, 4242);

  const auto &packet = std::get<PacketRecord>(read.records[1]);
  EXPECT_EQ(packet.from, Side::kFramework);
  EXPECT_EQ(packet.type, 8);
  EXPECT_EQ(packet.name, "LIST_DIR_RESPONSE");
  EXPECT_EQ(packet.bytes, 24U);
  EXPECT_FALSE(packet.verdict.valid);
  EXPECT_EQ(packet.verdict.lines, (std::vector<std::string>{"one", "two \xfd"}));
  EXPECT_EQ(packet.payload.form, Payload::Form::kJson);
  EXPECT_EQ(packet.payload.value["a"][0], "\xfe");
  EXPECT_EQ(packet.payload.value["a"][1], 1.25);

  const auto &garbage = std::get<GarbageRecord>(read.records[2]);
  EXPECT_EQ(garbage.from, Side::kFramework);
  EXPECT_EQ(garbage.reason, "why");
  EXPECT_EQ(garbage.bytes, 2U);
  EXPECT_EQ(garbage.data, std::string("\0\xff", 2));

  const auto &log = std::get<LogRecord>(read.records[3]);
  EXPECT_EQ(log.source, LogSource::kSyslog);
  EXPECT_EQ(log.text, "tab\there \xfc");
  EXPECT_EQ(log.bytes, 10U);

  const auto &end = std::get<StepEnd>(read.records[4]);
  EXPECT_EQ(end.step, "import");
  EXPECT_EQ(end.outcome, "failed");
  EXPECT_EQ(end.exitCode, 1);
  EXPECT_EQ(end.duration, 1999001);
}

TEST(TraceReader, ReadsATraceWithoutRecords) {
  const TraceFile file;
  file.write(kHeader);
  EXPECT_TRUE(readBack(file).records.empty());
}

TEST(TraceReader, AcceptsALastLineThatIsCutAnywhere) {
  const std::string log(kLog);
  for (std::size_t length = 1; length + 1 < log.size(); ++length) {
    const TraceFile file;
    file.write(std::string(kHeader) + kLog + log.substr(0, length));
    const Trace trace = readBack(file);
    EXPECT_EQ(trace.records.size(), 1U) << length;
    EXPECT_TRUE(trace.endsInsideLine) << length;
  }
}

TEST(TraceReader, AcceptsACompleteLastLineWithoutALineFeed) {
  const TraceFile file;
  const std::string log(kLog);
  file.write(kHeader + log.substr(0, log.size() - 1));
  const Trace trace = readBack(file);
  EXPECT_EQ(trace.records.size(), 1U);
  EXPECT_FALSE(trace.endsInsideLine);
}

TEST(TraceReader, NamesALineThatIsNotJson) {
  EXPECT_EQ(errorOf(std::string(kHeader) + kLog + "{\"kind\":\n" + kLog),
            "3: the line is not a JSON object");
  EXPECT_EQ(errorOfLine(""), "2: the line is not a JSON object");
  EXPECT_EQ(errorOfLine("[]"), "2: the line is not a JSON object");
  EXPECT_EQ(errorOfLine(std::string(5000, '[')), "2: the line is not a JSON object");
}

TEST(TraceReader, RefusesAFormatThatIsNewer) {
  EXPECT_EQ(errorOf("{\"kind\":\"trace\",\"format\":2,\"whatever\":[]}\n"),
            "1: the trace has format 2, which is newer than this program knows (1)");
}

TEST(TraceReader, RefusesAFileThatIsNotATrace) {
  for (const char *content :
       {"hello\n", "{}\n", "[]\n", "\n", "{\"kind\":5}\n", "{\"kind\":\"tr"}) {
    EXPECT_EQ(errorOf(content),
              "1: this is no trace: a trace begins with a line of kind \"trace\"");
  }
  EXPECT_EQ(errorOf("{\"kind\":\"trace\",\"format\":\"1\"}\n"),
            "1: \"format\" is not a whole number");
  EXPECT_EQ(errorOf("{\"kind\":\"trace\",\"format\":1}\n"), "1: \"time\" is missing");
  EXPECT_EQ(errorOf(kLog), "1: this is no trace: a trace begins with a line of kind \"trace\"");
}

TEST(TraceReader, RefusesAFileThatIsEmptyOrCannotBeRead) {
  EXPECT_EQ(errorOf(""), " is empty");
  Trace trace;
  std::string error;
  EXPECT_FALSE(readTrace("/no/such/file", trace, error));
  EXPECT_EQ(error, "/no/such/file: No such file or directory");
  EXPECT_FALSE(readTrace("/", trace, error));
  EXPECT_EQ(error, "/: Is a directory");
}

TEST(TraceReader, SaysWhatIsWrongInALine) {
  const std::string when = R"("time":1,"elapsed":0,)";
  const std::string packet = R"({"kind":"packet",)" + when;
  const struct {
    std::string line;
    const char *what;
  } cases[] = {
      {"{}", R"("kind" is missing)"},
      {R"({"kind":5})", R"("kind" is not a string)"},
      {R"({"kind":"novel"})", R"(no kind of line is called "novel")"},
      {R"({"kind":"log"})", R"("time" is missing)"},
      {R"({"kind":"log","time":"now"})", R"("time" is not a number)"},
      {R"({"kind":"log","time":1e15})", R"("time" is out of range)"},
      {R"({"kind":"log","time":1})", R"("elapsed" is missing)"},
      {R"({"kind":"log",)" + when + R"("source":"radio"})",
       R"("source" is no known source of log lines)"},
      {R"({"kind":"log",)" + when + R"("source":"host"})", R"("bytes" is missing)"},
      {R"({"kind":"log",)" + when + R"("source":"host","bytes":-1})",
       R"("bytes" is not a whole number from 0 up)"},
      {R"({"kind":"log",)" + when + R"("source":"host","bytes":1})", R"("text" is missing)"},
      {packet + R"("from":"me"})", R"("from" is neither "plugin" nor "framework")"},
      {packet + R"("from":"plugin","name":"N","type":1.5})", R"("type" is not a whole number)"},
      {packet + R"("from":"plugin","name":"N","type":1,"bytes":8,"valid":"yes"})",
       R"("valid" is not true or false)"},
      {packet + R"("from":"plugin","name":"N","type":1,"bytes":8,"valid":true,"rule_book":[5]})",
       R"("rule_book" is not an array of strings)"},
      {packet + R"("from":"plugin","name":"N","type":1,"bytes":8,"valid":true,"payload_text":5})",
       R"("payload_text" is not a string)"},
      {R"({"kind":"garbage",)" + when + R"("from":"plugin","reason":"r","bytes":1,"hex":"0"})",
       R"("hex" is not hexadecimal)"},
      {R"({"kind":"step",)" + when +
           R"("step":"s","plugin":"p","framework_version":"1","pid":"2"})",
       R"("pid" is not a whole number)"},
      {R"({"kind":"end",)" + when + R"("step":"s","outcome":"o","exit_code":4294967296})",
       R"("exit_code" is not a whole number)"},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(errorOfLine(c.line), std::string("2: ") + c.what) << c.line;
  }
}

TEST(TraceReader, GivesTheRecordsBeforeAnError) {
  const TraceFile file;
  file.write(std::string(kHeader) + kLog + "oops\n");
  Trace trace;
  std::string error;
  EXPECT_FALSE(readTrace(file.name(), trace, error));
  EXPECT_EQ(trace.records.size(), 1U);
}

TEST(TraceReader, IgnoresUnknownMembers) {
  const TraceFile file;
  file.write(
      std::string(kHeader) +
      R"({"kind":"log","time":1,"elapsed":0,"source":"host","bytes":1,"text":"x","more":{}})" +
      "\n");
  EXPECT_EQ(readBack(file).records.size(), 1U);
}

}  // namespace
}  // namespace arvl_host
