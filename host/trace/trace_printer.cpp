#include "trace/trace_printer.h"

#include <algorithm>
#include <cstdio>
#include <ostream>

#include "step/log_source.h"
#include "text/dates.h"
#include "text/durations.h"
#include "text/hex.h"
#include "text/sizes.h"
#include "text/utf8.h"

namespace arvl_host {

namespace {

constexpr std::size_t kPayloadWidth = 100;
constexpr std::size_t kNameWidth = 31;  // the length of the longest name
constexpr std::size_t kGarbageShown = 32;

std::string elapsedText(const TraceTime &time) {
  char text[48];
  std::snprintf(text, sizeof text, "%12.6f", static_cast<double>(time.elapsed) / 1e6);
  return text;
}

// Aligns a line with the text after the time in the line above.
std::string indent() {
  return std::string(13, ' ');
}

const char *arrow(Side from) {
  return from == Side::kPlugin ? "->" : "<-";
}

std::string padded(std::string text, std::size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text;
}

}  // namespace

void TracePrinter::printHeader(const TraceHeader &header) {
  out_ << "trace by " << visibleText(header.tool) << ", " << dateText(header.time.wall) << '\n'
       << "-> plug-in to framework, <- framework to plug-in; seconds since the trace began\n";
}

void TracePrinter::print(const TraceRecord &record) {
  counts_.add(record);
  std::visit([this](const auto &kind) { printRecord(kind); }, record);
}

void TracePrinter::printRecord(const StepStart &start) {
  counts_ = StepCounts();
  timer_ = AnswerTimer();
  out_ << '\n';
  std::string line = "== " + visibleText(start.step) + ": " + visibleText(start.plugin);
  line += " (framework " + visibleText(start.frameworkVersion) + ", pid ";
  line += std::to_string(start.pid) + ")";
  printLine(Colour::kBold, line);
}

void TracePrinter::printRecord(const PacketRecord &packet) {
  const bool valid = packet.verdict.valid;
  std::string line = elapsedText(packet.time) + " " + arrow(packet.from) + " ";
  line += padded(packetTitle(packet), kNameWidth) + " " + sizeText(packet);
  if (const auto took = timer_.time(packet)) {
    line += ", " + durationText(*took);
  }
  line += valid ? "" : ", INVALID";
  if (packet.payload.form != Payload::Form::kNone) {
    line += "  " + shortPayload(packet.payload, kPayloadWidth);
  }
  const Colour sender = packet.from == Side::kPlugin ? Colour::kPlugin : Colour::kFramework;
  printLine(valid ? sender : Colour::kInvalid, line);
  printRuleBook(packet.verdict);
}

void TracePrinter::printRuleBook(const Verdict &verdict) {
  for (const std::string &line : verdict.lines) {
    printLine(verdict.valid ? Colour::kDim : Colour::kInvalid,
              indent() + "   rule book: " + visibleText(line));
  }
}

void TracePrinter::printRecord(const GarbageRecord &garbage) {
  std::string line = elapsedText(garbage.time) + " " + arrow(garbage.from) + " NO PACKET: ";
  line += visibleText(garbage.reason) + ", " + countText(garbage.bytes, "byte") + "  ";
  line += toHex(garbage.data.substr(0, kGarbageShown));
  line += garbage.bytes > kGarbageShown ? "..." : "";
  printLine(Colour::kInvalid, line);
}

void TracePrinter::printRecord(const LogRecord &log) {
  std::string line = elapsedText(log.time) + "    " + sourceName(log.source) + ": ";
  line += visibleText(log.text);
  if (log.bytes > log.text.size()) {
    line += "... (" + countText(log.bytes, "byte") + ")";
  }
  printLine(Colour::kDim, line);
}

void TracePrinter::printRecord(const StepEnd &end) {
  std::string line = "== " + visibleText(end.step) + ": " + visibleText(end.outcome);
  line += " (exit code " + std::to_string(end.exitCode) + ", " + durationText(end.duration) + ", ";
  line +=
      countText(counts_.packets, "packet") + ", " + std::to_string(counts_.invalid) + " invalid, ";
  line += countText(counts_.logLines, "log line") + ")";
  printLine(Colour::kBold, line);
}

void TracePrinter::printLine(Colour colour, const std::string &text) {
  const char *start = "";
  switch (colour_ ? colour : Colour::kNone) {
    case Colour::kNone:
      break;
    case Colour::kDim:
      start = "\x1b[2m";
      break;
    case Colour::kBold:
      start = "\x1b[1m";
      break;
    case Colour::kPlugin:
      start = "\x1b[36m";
      break;
    case Colour::kFramework:
      start = "\x1b[35m";
      break;
    case Colour::kInvalid:
      start = "\x1b[1;31m";
      break;
  }
  out_ << start << text << (*start != '\0' ? "\x1b[0m\n" : "\n");
}

bool printTrace(TraceReader &reader, std::ostream &out, bool colour) {
  TracePrinter printer(out, colour);
  printer.printHeader(reader.header());
  TraceRecord record;
  TraceReader::Status status;
  while ((status = reader.next(record)) == TraceReader::Status::kRecord) {
    printer.print(record);
  }
  if (reader.endsInsideLine()) {
    out << "\nThe trace ends inside a line: its host did not live to finish it.\n";
  }
  return status == TraceReader::Status::kEnd;
}

}  // namespace arvl_host
