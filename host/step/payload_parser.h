// Parses payloads from untrusted senders within a memory limit.
#ifndef ARVL_HOST_STEP_PAYLOAD_PARSER_H_
#define ARVL_HOST_STEP_PAYLOAD_PARSER_H_

#include <json/forwards.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace arvl_host {

// A value takes up to 160 bytes in addition to its text, and an answer holds several copies of a
// payload. This limit keeps the memory below 512 MiB, even for the longest payload.
constexpr std::size_t kMaxPayloadValues = 100000;

enum class PayloadStatus { kParsed, kNotJson, kTooManyValues };

// Parses `text` into `payload`; an empty text gives null. On failure, sets `error` to the reason.
PayloadStatus parsePayload(std::string_view text, Json::Value &payload, std::string &error);

}  // namespace arvl_host

#endif  // ARVL_HOST_STEP_PAYLOAD_PARSER_H_
