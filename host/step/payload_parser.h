// The payloads of packets as values. Their senders may be anybody: what would take too much memory is not
// parsed.
#ifndef ARVL_HOST_STEP_PAYLOAD_PARSER_H_
#define ARVL_HOST_STEP_PAYLOAD_PARSER_H_

#include <json/forwards.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace arvl_host {

// A value takes up to 160 bytes beside its text, and the host holds a payload several times while it answers:
// together with the longest text, below 512 MiB.
constexpr std::size_t kMaxPayloadValues = 100000;

enum class PayloadStatus { kParsed, kNotJson, kTooManyValues };

// A request without content has no text at all, which reads as null. error says what is wrong.
PayloadStatus parsePayload(std::string_view text, Json::Value &payload, std::string &error);

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_PAYLOAD_PARSER_H_
