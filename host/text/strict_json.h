// Writes strict JSON, which every reader accepts, even for strings of any bytes.
#ifndef ARVL_HOST_TEXT_STRICT_JSON_H_
#define ARVL_HOST_TEXT_STRICT_JSON_H_

#include <json/forwards.h>

#include <functional>
#include <string>
#include <string_view>

namespace arvl_host {

enum class JsonLayout { kCompact, kIndented };

// Appends text as a JSON string. Escapes characters that are invisible or reorder others. Writes a byte that is
// not valid UTF-8 as a lone surrogate from \udc80 to \udcff, which restoreBytes() turns back into the byte.
void appendJsonString(std::string &out, std::string_view text);

// Appends a value as strict JSON. Returns false and appends nothing if the value is nested too deeply for common
// readers.
bool appendJson(std::string &out, const Json::Value &value, JsonLayout layout);

// Receives a text in pieces.
using JsonSink = std::function<void(std::string_view)>;

// Passes the text of appendJson() to the sink. The memory that it takes does not depend on the length of the text.
// Returns false and calls no sink if the value is nested too deeply.
bool writeJson(const JsonSink &sink, const Json::Value &value, JsonLayout layout);

// Returns the original text of a string that appendJsonString() wrote and JsonCpp parsed. The second form restores
// every string and key in a value.
std::string restoreBytes(std::string_view parsed);
Json::Value restoreBytes(const Json::Value &parsed);

}  // namespace arvl_host

#endif  // ARVL_HOST_TEXT_STRICT_JSON_H_
