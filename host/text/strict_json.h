// Values as strict JSON, which every reader of JSON accepts, whatever bytes their strings hold.
#ifndef ARVL_HOST_TEXT_STRICT_JSON_H_
#define ARVL_HOST_TEXT_STRICT_JSON_H_

#include <json/forwards.h>

#include <string>
#include <string_view>

namespace arvl_host {

enum class JsonLayout { kCompact, kIndented };

// Appends text as a JSON string. Characters that are invisible, or that change how others appear, are
// escaped. A byte that belongs to no character is written as a lone surrogate from \udc80 to \udcff;
// restoreBytes() turns it into the byte again.
void appendJsonString(std::string &out, std::string_view text);

// Appends a value as strict JSON. Returns false, with an unfinished text in out, for a value that nests
// too deep for the usual readers of JSON.
bool appendJson(std::string &out, const Json::Value &value, JsonLayout layout);

// Return what appendJsonString() was given, from what JsonCpp reads. The second form does so for every
// string and key inside a value.
std::string restoreBytes(std::string_view parsed);
Json::Value restoreBytes(const Json::Value &parsed);

}  // namespace arvl_host

#endif  // ARVL_HOST_TEXT_STRICT_JSON_H_
