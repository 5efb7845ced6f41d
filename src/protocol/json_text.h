// Converts payloads to and from text, at both ends of the connection. Uses JsonCpp's older reader and
// writer, because the protocol has their syntax and output. Logs nothing.
#ifndef ZARN_PROTOCOL_JSON_TEXT_H_
#define ZARN_PROTOCOL_JSON_TEXT_H_

#include <json/forwards.h>

#include <string>

namespace ZARN {
namespace ARVLAPP {

// Returns compact text that ends in a line feed, or an empty string for null.
std::string toJsonText(const Json::Value &payload);

// Parses the bytes from begin to end and reads none beyond them, even if the text is malformed.
//
// Returns false if the text is not JSON, is nested deeper than the parser's limit (1000 levels), or
// memory runs out; `error`, if given, then says why and where. Throws nothing, because it runs inside the
// event loop.
bool parseJsonText(const char *begin, const char *end, Json::Value &value,
                   std::string *error = nullptr) noexcept;

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_PROTOCOL_JSON_TEXT_H_
