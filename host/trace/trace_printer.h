// Prints a trace as text: one line per packet and log line, and a summary of each step.
#ifndef ARVL_HOST_TRACE_TRACE_PRINTER_H_
#define ARVL_HOST_TRACE_TRACE_PRINTER_H_

#include <iosfwd>

#include "trace/trace_reader.h"
#include "trace/trace_record.h"
#include "trace/trace_view.h"

namespace arvl_host {

// Prints record by record, so that memory does not grow with the trace. Replaces control characters.
class TracePrinter {
 public:
  TracePrinter(std::ostream &out, bool colour) : out_(out), colour_(colour) {}

  void printHeader(const TraceHeader &header);
  void print(const TraceRecord &record);

 private:
  enum class Colour { kNone, kDim, kBold, kPlugin, kFramework, kInvalid };

  void printRecord(const StepStart &start);
  void printRecord(const PacketRecord &packet);
  void printRecord(const GarbageRecord &garbage);
  void printRecord(const LogRecord &log);
  void printRecord(const StepEnd &end);

  void printLine(Colour colour, const std::string &text);
  void printRuleBook(const Verdict &verdict);

  std::ostream &out_;
  const bool colour_;
  AnswerTimer timer_;
  StepCounts counts_;
};

// Prints the remaining records of an open reader. Returns false on an error, after printing the records before
// it.
bool printTrace(TraceReader &reader, std::ostream &out, bool colour);

}  // namespace arvl_host

#endif  // ARVL_HOST_TRACE_TRACE_PRINTER_H_
