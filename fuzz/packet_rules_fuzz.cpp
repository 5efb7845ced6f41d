// Passes JSON text and a packet type to the rules. Input: the type in decimal, a space, the payload.

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "protocol/json_text.h"
#include "protocol/packet_table.h"
#include "support/check.h"
#include "support/log_sink.h"
#include "zarn/arvlapp/protocol_util.h"

namespace {

using arvl_fuzz::LogSink;
using namespace ZARN::ARVLAPP;

// The only case in which the rules let a conversion error of JsonCpp propagate.
bool isConversionExpectedToFail(PACKET_TYPE type, const Json::Value &payload) {
  if (type != PACKET_EXPORT_RESULT_RESPONSE || !payload.isObject() ||
      !payload["success"].isBool() || !payload["success"].asBool()) {
    return false;
  }
  const Json::Value &result = payload["export_result"];
  return result.isObject() && result.isMember("app_data_version") && result.isMember("success") &&
         !result["success"].isConvertibleTo(Json::booleanValue);
}

void checkVerdict(PACKET_TYPE type, bool isValid) {
  const bool isSilent = isValid || type == PACKET_STAT_REQUEST || type == PACKET_STAT_RESPONSE;
  if (isSilent) {
    // A list request with only a token logs a line, because its path is checked first.
    FUZZ_CHECK(LogSink::lineCount() == 0 ||
               LogSink::lastLine() == "protocol_util.cpp: no member [path]");
  } else {
    FUZZ_CHECK(LogSink::lastLine().rfind("protocol_util.cpp: ", 0) == 0);
  }
}

void checkPacket(PACKET_TYPE type, const Json::Value &payload) {
  const Json::Value before = payload;
  LogSink::clear();
  bool isValid = false;
  bool hasThrown = false;
  try {
    isValid = Util::isValidPacket(type, payload);
  } catch (const Json::Exception &) {
    hasThrown = true;
  }
  FUZZ_CHECK(hasThrown == isConversionExpectedToFail(type, before));
  FUZZ_CHECK(payload == before);
  if (!hasThrown) {
    checkVerdict(type, isValid);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const std::string input(reinterpret_cast<const char *>(data), size);
  char *text = nullptr;
  const auto type = static_cast<PACKET_TYPE>(std::strtol(input.c_str(), &text, 10));

  Json::Value payload;
  if (parseJsonText(text, input.c_str() + input.size(), payload)) {
    checkPacket(type, payload);
  }
  LogSink::clear();
  const bool isKnown = findPacket(type) != nullptr;
  FUZZ_CHECK((Util::packetString(type) != "invalid_packet_type") == isKnown);
  FUZZ_CHECK(LogSink::lineCount() == (isKnown ? 0 : 1));
  return 0;
}
