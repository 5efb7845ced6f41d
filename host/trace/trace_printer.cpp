#include "trace/trace_printer.h"

#include <algorithm>
#include <cstdio>
#include <ostream>

#include "trace/trace_text.h"

namespace arvl_host {

namespace {

constexpr std::size_t kPayloadWidth = 100;
constexpr std::size_t kNameWidth = 31;  // of the longest name
constexpr std::size_t kGarbageShown = 32;

std::string elapsedText(const TraceTime &time) {
  char text[48];
  std::snprintf(text, sizeof text, "%12.6f", static_cast<double>(time.elapsed) / 1e6);
  return text;
}

// Below a line of its own, under what follows the time.
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
  printLine(Colour::kBold, "== " + visibleText(start.step) + ": " + visibleText(start.plugin) +
                               " (framework " + visibleText(start.frameworkVersion) + ", pid " +
                               std::to_string(start.pid) + ")");
}

void TracePrinter::printRecord(const PacketRecord &packet) {
  std::string facts = sizeText(packet);
  if (const auto took = timer_.time(packet)) {
    facts += ", " + durationText(*took);
  }
  const bool valid = packet.verdict.valid;
  const Colour colour = packet.from == Side::kPlugin ? Colour::kPlugin : Colour::kFramework;
  printLine(valid ? colour : Colour::kInvalid, elapsedText(packet.time) + " " + arrow(packet.from) +
                                                   " " + padded(packetTitle(packet), kNameWidth) +
                                                   " " + facts + (valid ? "" : ", INVALID") + "  " +
                                                   shortPayloadText(packet.payload, kPayloadWidth));
  printRuleBook(packet.verdict);
}

void TracePrinter::printRuleBook(const Verdict &verdict) {
  for (const std::string &line : verdict.lines) {
    printLine(verdict.valid ? Colour::kDim : Colour::kInvalid,
              indent() + "   rule book: " + visibleText(line));
  }
}

void TracePrinter::printRecord(const GarbageRecord &garbage) {
  const bool cut = garbage.bytes > kGarbageShown;
  printLine(Colour::kInvalid,
            elapsedText(garbage.time) + " " + arrow(garbage.from) + " NO PACKET: " +
                visibleText(garbage.reason) + ", " + countText(garbage.bytes, "byte") + "  " +
                toHex(garbage.data.substr(0, kGarbageShown)) + (cut ? "..." : ""));
}

void TracePrinter::printRecord(const LogRecord &log) {
  const bool cut = log.bytes > log.text.size();
  printLine(Colour::kDim, elapsedText(log.time) + "    " + sourceName(log.source) + ": " +
                              visibleText(log.text) +
                              (cut ? "... (" + countText(log.bytes, "byte") + ")" : ""));
}

void TracePrinter::printRecord(const StepEnd &end) {
  printLine(Colour::kBold,
            "== " + visibleText(end.step) + ": " + visibleText(end.outcome) + " (exit code " +
                std::to_string(end.exitCode) + ", " + durationText(end.duration) + ", " +
                countText(counts_.packets, "packet") + ", " + std::to_string(counts_.invalid) +
                " invalid, " + countText(counts_.logLines, "log line") + ")");
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
