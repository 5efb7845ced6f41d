#include "trace/trace_view.h"

#include "protocol/packet_table.h"
#include "text/sizes.h"
#include "text/strict_json.h"
#include "text/utf8.h"

namespace arvl_host {

namespace {

int answerTo(int request) {
  const ZARN::ARVLAPP::PacketInfo *packet = ZARN::ARVLAPP::findPacket(request);
  return packet != nullptr ? packet->answer : ZARN::ARVLAPP::PACKET_TYPE_NONE;
}

std::string payloadText(const Payload &payload, JsonLayout layout) {
  if (payload.form != Payload::Form::kJson) {
    return visibleText(payload.text);  // empty where there is no payload
  }
  std::string text;
  appendJson(text, payload.value, layout);
  return text;
}

}  // namespace

std::optional<std::int64_t> AnswerTimer::time(const PacketRecord &packet) {
  if (packet.from == Side::kPlugin) {
    request_ = Request{packet.type, packet.time.elapsed};
    return std::nullopt;
  }
  const std::optional<Request> request = request_;
  request_.reset();
  if (!request || packet.type != answerTo(request->type)) {
    return std::nullopt;
  }
  return packet.time.elapsed - request->elapsed;
}

void StepCounts::add(const TraceRecord &record) {
  if (const auto *packet = std::get_if<PacketRecord>(&record)) {
    ++packets;
    invalid += packet->verdict.valid ? 0 : 1;
  } else if (std::holds_alternative<GarbageRecord>(record)) {
    ++invalid;
  } else if (std::holds_alternative<LogRecord>(record)) {
    ++logLines;
  }
}

std::string packetTitle(const PacketRecord &packet) {
  return packet.name == "unknown" ? "unknown type " + std::to_string(packet.type)
                                  : visibleText(packet.name);
}

std::string indentedPayload(const Payload &payload) {
  return payloadText(payload, JsonLayout::kIndented);
}

std::string shortPayload(const Payload &payload, std::size_t limit) {
  std::string text = payloadText(payload, JsonLayout::kCompact);
  if (text.size() <= limit && payload.form != Payload::Form::kAbbreviated) {
    return text;
  }
  return std::string(cutText(text, limit - 3)) + "...";
}

std::string sizeText(const PacketRecord &packet) {
  return countText(packet.bytes, "byte");
}

}  // namespace arvl_host
