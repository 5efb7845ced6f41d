#include "trace/trace_writer.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>

#include "host/support/trace_files.h"
#include "support/log_capture.h"
#include "zarn/arvlapp/protocol_util.h"

namespace arvl_host {
namespace {

using namespace ZARN::ARVLAPP;
using arvl_test::ClockedWriter;
using arvl_test::LogCapture;
using arvl_test::LogLines;
using arvl_test::readBack;
using arvl_test::TraceFile;

constexpr char kAtBegin[] = R"("time":1767261845.123456,"elapsed":0.000000)";

// Returns the line of one packet of type 7 from the plug-in.
std::string packetLine(std::string_view payload) {
  const TraceFile file;
  ClockedWriter trace(file.name());
  trace.writer.packet(Side::kPlugin, PACKET_LIST_DIR_REQUEST, payload);
  return file.lines().at(1);
}

std::string listDirLine(std::size_t bytes, const std::string &payload) {
  return std::string("{\"kind\":\"packet\",") + kAtBegin +
         R"(,"from":"plugin","name":"LIST_DIR_REQUEST","type":7,"bytes":)" + std::to_string(bytes) +
         ",\"valid\":true" + payload + "}";
}

Payload payloadReadBack(const std::string &payload, bool full) {
  const TraceFile file;
  ClockedWriter trace(file.name(), full);
  trace.writer.packet(Side::kFramework, PACKET_LIST_DIR_RESPONSE, payload);
  const auto packet = std::get<PacketRecord>(readBack(file).records.at(0));
  EXPECT_EQ(packet.bytes, payload.size() + 8);
  return packet.payload;
}

TEST(TraceWriter, WritesOneLineForEachEvent) {
  const TraceFile file;
  ClockedWriter trace(file.name());
  trace.now = 1000;
  trace.writer.stepStarted("export", "/opt/\"p\"/export", "2.3", 42);
  trace.now = 1500;
  trace.writer.packet(Side::kPlugin, PACKET_LANGUAGE_REQUEST, "");
  trace.now = 2000001;
  trace.writer.packet(Side::kFramework, PACKET_LANGUAGE_RESPONSE,
                      "{\"success\":true,\"language\":\"enu\"}\n");
  trace.writer.log(LogSource::kStderr, "a line");
  trace.writer.garbage(Side::kPlugin, "\xde\xad", "no check code");
  trace.writer.packet(
      Side::kPlugin, PACKET_EXPORT_COMPLETE, "[]",
      {false, {"protocol_util.cpp:70 not a object", "protocol_util.cpp:9 invalid"}});
  trace.now = 3000000;
  trace.writer.stepEnded("broke the protocol", 3);
  EXPECT_EQ(
      file.content(),
      R"({"kind":"trace","time":1767261845.123456,"elapsed":0.000000,"format":1,"tool":"arvl-host 1.0.0"}
{"kind":"step","time":1767261845.124456,"elapsed":0.001000,"step":"export","plugin":"/opt/\"p\"/export","framework_version":"2.3","pid":42}
{"kind":"packet","time":1767261845.124956,"elapsed":0.001500,"from":"plugin","name":"PACKET_LANGUAGE_REQUEST","type":22,"bytes":8,"valid":true}
{"kind":"packet","time":1767261847.123457,"elapsed":2.000001,"from":"framework","name":"PACKET_LANGUAGE_RESPONSE","type":23,"bytes":42,"valid":true,"payload":{"language":"enu","success":true}}
{"kind":"log","time":1767261847.123457,"elapsed":2.000001,"source":"stderr","bytes":6,"text":"a line"}
{"kind":"garbage","time":1767261847.123457,"elapsed":2.000001,"from":"plugin","reason":"no check code","bytes":2,"hex":"dead"}
{"kind":"packet","time":1767261847.123457,"elapsed":2.000001,"from":"plugin","name":"EXPORT_COMPLETE","type":5,"bytes":10,"valid":false,"rule_book":["protocol_util.cpp:70 not a object","protocol_util.cpp:9 invalid"],"payload":[]}
{"kind":"end","time":1767261848.123456,"elapsed":3.000000,"step":"export","outcome":"broke the protocol","exit_code":3,"seconds":2.999000}
)");
}

TEST(TraceWriter, HasEachLineInTheFileBeforeTheNextEvent) {
  const TraceFile file;
  ClockedWriter trace(file.name());
  EXPECT_EQ(file.lines().size(), 1U);
  trace.writer.log(LogSource::kHost, "first");
  EXPECT_EQ(file.lines().size(), 2U);
  trace.writer.log(LogSource::kHost, "second");
  EXPECT_EQ(file.lines().size(), 3U);
}

TEST(TraceWriter, DoesNothingWhileNoFileIsOpen) {
  TraceWriter writer;
  writer.stepStarted("export", "/p", "2.3", 1);
  writer.packet(Side::kPlugin, PACKET_LANGUAGE_REQUEST, "");
  writer.garbage(Side::kPlugin, "x", "y");
  writer.log(LogSource::kHost, "z");
  writer.stepEnded("succeeded", 0);
  writer.close();
}

TEST(TraceWriter, NamesAnUnknownTypeWithoutALogLine) {
  const TraceFile file;
  ClockedWriter trace(file.name());
  LogCapture log;
  trace.writer.packet(Side::kPlugin, 60000, "{}");
  trace.writer.packet(Side::kPlugin, 65535, "{}");
  EXPECT_EQ(log.take(), LogLines{});
  const Trace read = readBack(file);
  EXPECT_EQ(std::get<PacketRecord>(read.records.at(0)).name, "unknown");
  EXPECT_EQ(std::get<PacketRecord>(read.records.at(1)).type, 65535);
}

TEST(TraceWriter, KeepsRuleBookLinesOfValidPackets) {
  const TraceFile file;
  ClockedWriter trace(file.name());
  trace.writer.packet(Side::kPlugin, PACKET_LIST_DIR_REQUEST, "{\"request_id\":\"1\"}",
                      {true, {"protocol_util.cpp:74 no member [path]"}});
  const auto packet = std::get<PacketRecord>(readBack(file).records.at(0));
  EXPECT_TRUE(packet.verdict.valid);
  EXPECT_EQ(packet.verdict.lines,
            std::vector<std::string>{"protocol_util.cpp:74 no member [path]"});
}

TEST(TraceWriter, WritesStrictJsonForALenientPayload) {
  EXPECT_EQ(packetLine("{ /* why */ \"a\" : 1, // so\n \"a\" : 2 } trailing"),
            listDirLine(54, R"(,"payload":{"a":2})"));
  EXPECT_EQ(packetLine("{\"path\":\"/caf\xe9\"}"),
            listDirLine(24, R"(,"payload":{"path":"/caf\udce9"})"));
  EXPECT_EQ(packetLine("{\"a\":\"line\nfeed\"}"),
            listDirLine(25, R"(,"payload":{"a":"line\nfeed"})"));
}

TEST(TraceWriter, ShowsAsTextAPayloadThatIsNotJson) {
  EXPECT_EQ(packetLine("{\"a\":"), listDirLine(13, R"(,"payload_text":"{\"a\":")"));
  EXPECT_EQ(packetLine(std::string_view("\0\xff\r", 3)),
            listDirLine(11, R"(,"payload_text":"\u0000\udcff\r")"));
}

TEST(TraceWriter, ShowsAsTextAPayloadThatIsNestedTooDeep) {
  for (const std::size_t depth : {201U, 5000U}) {
    const std::string payload = std::string(depth, '[') + std::string(depth, ']');
    const Payload read = payloadReadBack(payload, false);
    EXPECT_EQ(read.form, Payload::Form::kText);
    EXPECT_EQ(read.text, payload);
  }
}

TEST(TraceWriter, ShowsAsTextAPayloadWithTooManyValues) {
  std::string payload = "[0";
  for (int i = 1; i < 99998; ++i) {
    payload += ",0";
  }
  EXPECT_EQ(payloadReadBack(payload + ",0]", true).form, Payload::Form::kJson);
  EXPECT_EQ(payloadReadBack(payload + ",0,0]", true).form, Payload::Form::kText);
}

TEST(TraceWriter, DistinguishesAnEmptyPayloadFromNull) {
  EXPECT_EQ(packetLine(""), listDirLine(8, ""));
  EXPECT_EQ(packetLine("null"), listDirLine(12, ",\"payload\":null"));
}

TEST(TraceWriter, AbbreviatesPayloadsAbove64KiB) {
  const std::string fits = "{\"a\":\"" + std::string(64 * 1024 - 8, 'x') + "\"}";
  EXPECT_EQ(payloadReadBack(fits, false).form, Payload::Form::kJson);

  const std::string tooLong = "{\"a\":\"" + std::string(64 * 1024 - 7, 'x') + "\"}";
  const Payload read = payloadReadBack(tooLong, false);
  EXPECT_EQ(read.form, Payload::Form::kAbbreviated);
  EXPECT_EQ(read.text, tooLong.substr(0, 4096));
}

TEST(TraceWriter, AbbreviatesAtTheEndOfACharacter) {
  std::string payload = "{\"a\":\"";
  while (payload.size() <= 64 * 1024) {
    payload += "☃";
  }
  const std::string read = payloadReadBack(payload + "\"}", false).text;
  EXPECT_EQ(read, payload.substr(0, 4095)) << "6 bytes, then 1363 characters of 3";
}

TEST(TraceWriter, AbbreviatesNothingInAFullTrace) {
  const std::string payload = "{\"a\":\"" + std::string(1024 * 1024, 'x') + "\"}";
  const Payload read = payloadReadBack(payload, true);
  EXPECT_EQ(read.form, Payload::Form::kJson);
  EXPECT_EQ(read.value["a"].asString().size(), 1024U * 1024U);
}

TEST(TraceWriter, AbbreviatesLogLinesAndGarbageToo) {
  const TraceFile file;
  ClockedWriter trace(file.name());
  const std::string flood(1024 * 1024, 'x');
  trace.writer.log(LogSource::kStdout, flood);
  trace.writer.garbage(Side::kPlugin, flood, "no check code");
  const Trace read = readBack(file);
  const auto log = std::get<LogRecord>(read.records.at(0));
  EXPECT_EQ(log.bytes, flood.size());
  EXPECT_EQ(log.text, flood.substr(0, 4096));
  const auto garbage = std::get<GarbageRecord>(read.records.at(1));
  EXPECT_EQ(garbage.bytes, flood.size());
  EXPECT_EQ(garbage.data, flood.substr(0, 4096));
}

TEST(TraceWriter, MakesTheFileReadableByItsOwnerOnly) {
  const TraceFile file;
  ASSERT_EQ(unlink(file.name().c_str()), 0);
  const ClockedWriter trace(file.name());
  struct stat status = {};
  ASSERT_EQ(stat(file.name().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 077U, 0U);
}

TEST(TraceWriter, ReportsWhyAFileCannotBeOpened) {
  TraceWriter writer;
  std::string error;
  EXPECT_FALSE(writer.open("/no/such/folder/run.trace", "tool", {}, error));
  EXPECT_EQ(error, "cannot write the trace /no/such/folder/run.trace: No such file or directory");
  EXPECT_FALSE(writer.open("/dev/full", "tool", {}, error));
  EXPECT_EQ(error, "cannot write the trace /dev/full: No space left on device");
  writer.log(LogSource::kHost, "still allowed");
}

// Simulates a full disk with a limit on the size of files.
TEST(TraceWriter, ReportsOnceThatTheDiskIsFullAndLeavesWholeLines) {
  const TraceFile file;
  ClockedWriter trace(file.name());
  trace.writer.log(LogSource::kHost, "fits");
  const std::string before = file.content();

  struct rlimit unlimited = {};
  getrlimit(RLIMIT_FSIZE, &unlimited);
  struct rlimit limited = unlimited;
  limited.rlim_cur = before.size() + 20;
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &limited);
  trace.writer.log(LogSource::kHost, "does not fit");
  trace.writer.log(LogSource::kHost, "nor this");
  setrlimit(RLIMIT_FSIZE, &unlimited);
  std::signal(SIGXFSZ, handler);
  trace.writer.log(LogSource::kHost, "too late");

  EXPECT_EQ(trace.errors, std::vector<std::string>{"cannot write the trace " + file.name() +
                                                   ": File too large; it ends here"});
  EXPECT_EQ(file.content(), before);
}

TEST(TraceWriter, UsesTheSystemClocksByDefault) {
  const TraceFile file;
  TraceWriter writer;
  std::string error;
  const std::int64_t before = std::int64_t{1000000} * time(nullptr);
  ASSERT_TRUE(writer.open(file.name(), "tool", {}, error));
  writer.log(LogSource::kHost, "x");
  writer.close();
  const Trace trace = readBack(file);
  EXPECT_GE(trace.header.time.wall, before);
  EXPECT_GE(std::get<LogRecord>(trace.records.at(0)).time.elapsed, 0);
}

}  // namespace
}  // namespace arvl_host
