// Builds a JSON object on one line.
#ifndef ARVL_HOST_TEXT_JSON_LINE_H_
#define ARVL_HOST_TEXT_JSON_LINE_H_

#include <json/forwards.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace arvl_host {

// Adds members in the order of the calls. Does not escape keys: they must contain no character that
// needs it.
class JsonLine {
 public:
  JsonLine &string(const char *key, std::string_view value);
  JsonLine &number(const char *key, std::int64_t value);
  // Writes microseconds as seconds with six decimals.
  JsonLine &seconds(const char *key, std::int64_t microseconds);
  JsonLine &boolean(const char *key, bool value);
  JsonLine &strings(const char *key, const std::vector<std::string> &values);
  // Returns false and adds nothing if the value nests too deep.
  bool json(const char *key, const Json::Value &value);

  // Closes the object, appends `end` and returns the text, which is valid as long as the line.
  std::string_view finish(const char *end = "");

 private:
  std::string &member(const char *key);

  std::string text_ = "{";
};

}  // namespace arvl_host

#endif  // ARVL_HOST_TEXT_JSON_LINE_H_
