#include "protocol/json_text.h"

#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>

#include <exception>

namespace ZARN {
namespace ARVLAPP {

namespace {

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

std::string write(const Json::Value &value) {
  return Json::FastWriter().write(value);
}

bool parse(const char *begin, const char *end, Json::Value &value, std::string *error) {
  Json::Reader reader;
  const bool isParsed = reader.parse(begin, end, value, false);
  if (!isParsed && error != nullptr) {
    *error = reader.getFormattedErrorMessages();
  }
  return isParsed;
}

#pragma GCC diagnostic pop

bool isJsonSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

}  // namespace

std::string toJsonText(const Json::Value &payload) {
  return payload.isNull() ? std::string() : write(payload);
}

// The parser may read one byte beyond its range, so the range must end before the text does. White
// space at the end does not change the result and is left out. Text without it is copied to a string,
// where a NUL follows. The older writers end their text with a line feed, so copies are rare.
bool parseJsonText(const char *begin, const char *end, Json::Value &value,
                   std::string *error) noexcept {
  const char *last = end;
  while (last > begin && isJsonSpace(last[-1])) {
    --last;
  }
  try {
    if (last < end) {
      return parse(begin, last, value, error);
    }
    const std::string copy(begin, end);
    return parse(copy.data(), copy.data() + copy.size(), value, error);
  } catch (const std::exception &exception) {
    if (error != nullptr) {
      *error = exception.what();
    }
    return false;
  }
}

}  // namespace ARVLAPP
}  // namespace ZARN
