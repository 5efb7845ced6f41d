// Passes any text to the parser of payloads. The parser must not read beyond the end. Its verdict and
// value must equal those of the bare parser, which gets the same text with a NUL appended. The value
// must not contain more values than countJsonValues() returns.

#include <json/reader.h>
#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

#include "protocol/json_text.h"
#include "protocol/json_values.h"
#include "support/check.h"
#include "support/guard_page.h"

namespace {

// The parser is not instrumented: the values and errors that it produces replace its coverage.
constexpr std::size_t kCounters = 4096;
__attribute__((section("__libfuzzer_extra_counters"))) std::uint8_t counters[kCounters];

void count(std::size_t feature) {
  ++counters[feature % kCounters];
}

// The number of values, this one included.
std::size_t countValue(const Json::Value &value, unsigned depth = 0) {
  count(depth * 8 + static_cast<unsigned>(value.type()));
  std::size_t values = 1;
  for (const Json::Value &member : value) {
    values += countValue(member, depth + 1);
  }
  return values;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

bool parseBare(const std::string &text, Json::Value &value) {
  Json::Reader reader;
  try {
    const bool isParsed = reader.parse(text.data(), text.data() + text.size(), value, false);
    for (const auto &error : reader.getStructuredErrors()) {
      count(std::hash<std::string>()(error.message));
    }
    return isParsed;
  } catch (const std::exception &) {
    return false;  // nested too deeply
  }
}

#pragma GCC diagnostic pop

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const arvl_fuzz::GuardedBytes text(data, size);
  Json::Value value;
  const bool isParsed = ZARN::ARVLAPP::parseJsonText(text.begin(), text.end(), value);

  Json::Value expected;
  const bool isExpected = parseBare(std::string(text.begin(), text.end()), expected);
  FUZZ_CHECK(isParsed == isExpected);
  if (isParsed) {
    FUZZ_CHECK(value == expected);
    const std::string_view whole(text.begin(), size);
    FUZZ_CHECK(countValue(value) <= ZARN::ARVLAPP::countJsonValues(whole));
  }
  return 0;
}
