// Texts that both the printed trace and the page show.
#ifndef ARVL_HOST_TRACE_TRACE_VIEW_H_
#define ARVL_HOST_TRACE_TRACE_VIEW_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "trace/trace_record.h"

namespace arvl_host {

// Measures how long the framework took for each answer.
class AnswerTimer {
 public:
  // Takes each packet in turn. Returns the microseconds since its request if it is the answer to it.
  std::optional<std::int64_t> time(const PacketRecord &packet);

 private:
  struct Request {
    int type;
    std::int64_t elapsed;
  };
  std::optional<Request> request_;
};

struct StepCounts {
  std::uint64_t packets = 0;
  std::uint64_t invalid = 0;  // packets that the rule book refuses, and garbage
  std::uint64_t logLines = 0;

  void add(const TraceRecord &record);
};

// Returns "UPLOAD_REQUEST" or "unknown type 300".
std::string packetTitle(const PacketRecord &packet);

// Returns the payload as far as the trace has it, without control characters, with
// each JSON value on its own line.
std::string indentedPayload(const Payload &payload);

// Returns the payload on one line of at most `limit` bytes.
std::string shortPayload(const Payload &payload, std::size_t limit);

// Returns "143 bytes".
std::string sizeText(const PacketRecord &packet);

}  // namespace arvl_host

#endif  // ARVL_HOST_TRACE_TRACE_VIEW_H_
