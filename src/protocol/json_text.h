// Payloads as text, at both ends of the connection, by JsonCpp's reader and writer of old: what that
// reader accepts is accepted, and what that writer writes is on the wire. Logs nothing.
#ifndef ZARN_PROTOCOL_JSON_TEXT_H_
#define ZARN_PROTOCOL_JSON_TEXT_H_

#include <json/forwards.h>

#include <string>

namespace ZARN {
namespace ARVLAPP {

// Compact text, ended by a line feed; empty for null.
std::string toJsonText(const Json::Value &payload);

// Parses exactly the bytes from begin to end; none beyond them is read, even of malformed text.
//
// False for text that is not JSON, for nesting beyond the parser's limit (1000 levels) and for want of
// memory; error, if given, then says why and where. Throws nothing: no exception may cross the event loop
// that its caller runs in.
bool parseJsonText(const char *begin, const char *end, Json::Value &value,
                   std::string *error = nullptr) noexcept;

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_PROTOCOL_JSON_TEXT_H_
