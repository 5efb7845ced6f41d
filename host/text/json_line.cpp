#include "text/json_line.h"

#include <cinttypes>
#include <cstdio>

#include "text/strict_json.h"

namespace arvl_host {

JsonLine &JsonLine::string(const char *key, std::string_view value) {
  appendJsonString(member(key), value);
  return *this;
}

JsonLine &JsonLine::number(const char *key, std::int64_t value) {
  member(key) += std::to_string(value);
  return *this;
}

JsonLine &JsonLine::seconds(const char *key, std::int64_t microseconds) {
  char text[48];
  std::snprintf(text, sizeof text, "%" PRId64 ".%06" PRId64, microseconds / 1000000,
                microseconds % 1000000);
  member(key) += text;
  return *this;
}

JsonLine &JsonLine::boolean(const char *key, bool value) {
  member(key) += value ? "true" : "false";
  return *this;
}

JsonLine &JsonLine::strings(const char *key, const std::vector<std::string> &values) {
  const char *separator = "";
  std::string &text = member(key);
  text += '[';
  for (const std::string &value : values) {
    text += separator;
    appendJsonString(text, value);
    separator = ",";
  }
  text += ']';
  return *this;
}

bool JsonLine::json(const char *key, const Json::Value &value) {
  const std::size_t before = text_.size();
  if (appendJson(member(key), value, JsonLayout::kCompact)) {
    return true;
  }
  text_.resize(before);
  return false;
}

std::string_view JsonLine::finish(const char *end) {
  return text_.append("}").append(end);
}

std::string &JsonLine::member(const char *key) {
  text_ += text_.size() == 1 ? "\"" : ",\"";
  return text_.append(key).append("\":");
}

}  // namespace arvl_host
