#include "step/payload_parser.h"

#include <json/value.h>

#include "protocol/json_text.h"
#include "protocol/json_values.h"

namespace arvl_host {

using namespace ZARN::ARVLAPP;

PayloadStatus parsePayload(std::string_view text, Json::Value &payload, std::string &error) {
  if (text.empty()) {
    payload = Json::Value();
    return PayloadStatus::kParsed;
  }
  const std::size_t values = countJsonValues(text);
  if (values > kMaxPayloadValues) {
    error = "the payload may hold " + std::to_string(values) + " values; arvl-host reads at most " +
            std::to_string(kMaxPayloadValues);
    return PayloadStatus::kTooManyValues;
  }
  if (!parseJsonText(text.data(), text.data() + text.size(), payload, &error)) {
    error = "the payload is not JSON: " + error;
    return PayloadStatus::kNotJson;
  }
  return PayloadStatus::kParsed;
}

}  // namespace arvl_host
