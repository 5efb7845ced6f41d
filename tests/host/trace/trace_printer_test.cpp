#include "trace/trace_printer.h"

#include <gtest/gtest.h>

#include <sstream>

#include "host/support/trace_files.h"
#include "zarn/arvlapp/protocol_util.h"

namespace arvl_host {
namespace {

using namespace ZARN::ARVLAPP;
using arvl_test::ClockedWriter;
using arvl_test::TraceFile;

std::string print(const TraceFile &file, bool colour = false) {
  TraceReader reader;
  EXPECT_TRUE(reader.open(file.name())) << reader.error();
  std::ostringstream out;
  EXPECT_TRUE(printTrace(reader, out, colour)) << reader.error();
  return out.str();
}

// Returns the output without the two lines of the heading.
std::string printBody(const TraceFile &file, bool colour = false) {
  const std::string text = print(file, colour);
  return text.substr(text.find('\n', text.find('\n') + 1) + 1);
}

TEST(TracePrinter, PrintsAWholeRun) {
  const TraceFile file;
  ClockedWriter trace(file.name());
  trace.writer.stepStarted("export", "/opt/plug/export", "2.3", 42);
  trace.now = 1234;
  trace.writer.packet(Side::kPlugin, PACKET_LANGUAGE_REQUEST, "");
  trace.now = 1584;
  trace.writer.packet(Side::kFramework, PACKET_LANGUAGE_RESPONSE,
                      "{\"success\":true,\"language\":\"enu\"}\n");
  trace.writer.log(LogSource::kStdout, "hello");
  trace.now = 12500000;
  trace.writer.garbage(Side::kPlugin, std::string(40, '\xde'), "the check code is wrong");
  trace.writer.packet(Side::kPlugin, PACKET_STAT_REQUEST, "{\"path\":", {false, {}});
  trace.writer.packet(Side::kPlugin, 300, "{}",
                      {false, {"protocol_util.cpp:7 invalid packet type 300"}});
  trace.writer.stepEnded("broke the protocol", 3);
  trace.writer.stepStarted("import", "/opt/plug/import", "2.3", 43);
  trace.writer.stepEnded("succeeded", 0);
  EXPECT_EQ(
      print(file),
      "trace by arvl-host 1.0.0, 2026-01-01 10:04:05 UTC\n"
      "-> plug-in to framework, <- framework to plug-in; seconds since the trace began\n"
      "\n"
      "== export: /opt/plug/export (framework 2.3, pid 42)\n"
      "    0.001234 -> PACKET_LANGUAGE_REQUEST         8 bytes\n"
      "    0.001584 <- PACKET_LANGUAGE_RESPONSE        42 bytes, 350 µs  "
      "{\"language\":\"enu\",\"success\":true}\n"
      "    0.001584    stdout: hello\n"
      "   12.500000 -> NO PACKET: the check code is wrong, 40 bytes  "
      "dededededededededededededededededededededededededededededededede...\n"
      "   12.500000 -> STAT_REQUEST                    16 bytes, INVALID  {\"path\":\n"
      "   12.500000 -> unknown type 300                10 bytes, INVALID  {}\n"
      "                rule book: protocol_util.cpp:7 invalid packet type 300\n"
      "== export: broke the protocol (exit code 3, 12.50 s, 4 packets, 3 invalid, 1 log line)\n"
      "\n"
      "== import: /opt/plug/import (framework 2.3, pid 43)\n"
      "== import: succeeded (exit code 0, 0 µs, 0 packets, 0 invalid, 0 log lines)\n");
}

TEST(TracePrinter, ShortensPayloadsToALine) {
  const TraceFile file;
  ClockedWriter trace(file.name());
  trace.writer.packet(Side::kPlugin, PACKET_CAN_EXPORT_RESULT,
                      "{\"a\":\"" + std::string(200, 'x') + "\"}");
  trace.writer.packet(Side::kPlugin, PACKET_CAN_EXPORT_RESULT,
                      "{\"a\":\"" + std::string(100000, 'x') + "\"}");
  const std::string shortened = "{\"a\":\"" + std::string(91, 'x') + "...\n";
  EXPECT_EQ(printBody(file),
            "    0.000000 -> CAN_EXPORT_RESULT               216 bytes  " + shortened +
                "    0.000000 -> CAN_EXPORT_RESULT               100016 bytes  " + shortened);
}

TEST(TracePrinter, LetsNoControlCharacterThrough) {
  const TraceFile file;
  ClockedWriter trace(file.name());
  const std::string evil = "\x1b[2J\r\n\x07\xff\u009b\u202e";
  trace.writer.stepStarted(evil, evil, evil, 1);
  trace.writer.packet(Side::kPlugin, PACKET_SUMMARY_RESULT, "{\"\\u001b\":\"\\u009b\"}",
                      {false, {evil}});
  trace.writer.packet(Side::kPlugin, PACKET_SUMMARY_RESULT, evil);
  trace.writer.garbage(Side::kPlugin, "", evil);
  trace.writer.log(LogSource::kStderr, evil);
  trace.writer.stepEnded(evil, 0);
  const std::string text = print(file);
  for (const char c : text) {
    EXPECT_TRUE(c == '\n' || (static_cast<unsigned char>(c) >= 0x20 && c != 0x7f)) << int{c};
  }
  EXPECT_EQ(text.find("\u009b"), std::string::npos);
  EXPECT_EQ(text.find("\u202e"), std::string::npos);
  EXPECT_NE(text.find("    stderr: \\x1b[2J\\r\\n\\x07\\xff\\u009b\\u202e\n"), std::string::npos);
}

TEST(TracePrinter, SaysHowLongAnAbbreviatedLogLineWas) {
  const TraceFile file;
  ClockedWriter trace(file.name());
  trace.writer.log(LogSource::kStderr, std::string(70000, 'x'));
  EXPECT_EQ(printBody(file),
            "    0.000000    stderr: " + std::string(4096, 'x') + "... (70000 bytes)\n");
}

TEST(TracePrinter, ColoursOnlyWhenAsked) {
  const TraceFile file;
  ClockedWriter trace(file.name());
  trace.writer.packet(Side::kPlugin, PACKET_LANGUAGE_REQUEST, "");
  trace.writer.packet(Side::kFramework, PACKET_LANGUAGE_RESPONSE, "", {false, {"wrong"}});
  trace.writer.log(LogSource::kHost, "so");
  EXPECT_EQ(
      printBody(file, true),
      "\x1b[36m    0.000000 -> PACKET_LANGUAGE_REQUEST         8 bytes\x1b[0m\n"
      "\x1b[1;31m    0.000000 <- PACKET_LANGUAGE_RESPONSE        8 bytes, 0 µs, INVALID\x1b[0m\n"
      "\x1b[1;31m                rule book: wrong\x1b[0m\n"
      "\x1b[2m    0.000000    host: so\x1b[0m\n");
  EXPECT_EQ(print(file).find('\x1b'), std::string::npos);
}

TEST(TracePrinter, TimesOnlyTheAnswerToTheRequestBeforeIt) {
  const TraceFile file;
  ClockedWriter trace(file.name());
  trace.writer.packet(Side::kPlugin, PACKET_LANGUAGE_REQUEST, "");
  trace.writer.packet(Side::kFramework, PACKET_UPLOAD_RESPONSE, "");
  trace.writer.packet(Side::kFramework, PACKET_LANGUAGE_RESPONSE, "");
  EXPECT_EQ(printBody(file).find("µs"), std::string::npos);
}

TEST(TracePrinter, SaysThatATraceIsCut) {
  const TraceFile file;
  { ClockedWriter trace(file.name()); }
  file.write(file.content() + "{\"kind\":");
  EXPECT_EQ(printBody(file),
            "\nThe trace ends inside a line: its host did not live to finish it.\n");
}

TEST(TracePrinter, PrintsWhatComesBeforeAnError) {
  const TraceFile file;
  { ClockedWriter(file.name()).writer.log(LogSource::kHost, "so far"); }
  file.write(file.content() + "oops\n");
  TraceReader reader;
  ASSERT_TRUE(reader.open(file.name()));
  std::ostringstream out;
  EXPECT_FALSE(printTrace(reader, out, false));
  EXPECT_NE(out.str().find("host: so far\n"), std::string::npos);
  EXPECT_EQ(reader.error(), file.name() + ":3: the line is not a JSON object");
}

}  // namespace
}  // namespace arvl_host
