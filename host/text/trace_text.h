// Text from outside made safe to write: as JSON, on a terminal, in a page. What comes from a plug-in
// may hold any bytes; nothing here trusts it to be UTF-8.
#ifndef ARVL_HOST_TEXT_TRACE_TEXT_H_
#define ARVL_HOST_TEXT_TRACE_TEXT_H_

#include <json/forwards.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace arvl_host {

enum class JsonLayout { kCompact, kIndented };

// Appends text as a JSON string. Characters that show as nothing, or that change how others show, are
// escaped; so is each byte that belongs to no character, as a lone surrogate from \udc80 to \udcff,
// from which restoreBytes() has it back.
void appendJsonString(std::string &out, std::string_view text);

// Appends a value as strict JSON. False, with an unfinished text in out, for a value that nests too
// deep for the usual readers of JSON.
bool appendJson(std::string &out, const Json::Value &value, JsonLayout layout);

// What appendJsonString() was given, from what JsonCpp makes of it; in the second form for every
// string and key inside a value.
std::string restoreBytes(std::string_view parsed);
Json::Value restoreBytes(const Json::Value &parsed);

// The first bytes of text, at most limit; no character is cut in two.
std::string_view cutText(std::string_view text, std::size_t limit);

// For a terminal or a page: one line, in which control characters and bytes that belong to no
// character are seen as \n, \x1b, \u202e.
std::string visibleText(std::string_view text);

bool isUtf8(std::string_view text);

std::string escapeHtml(std::string_view text);

std::string toHex(std::string_view bytes);
// False for text that is not pairs of hexadecimal digits.
bool fromHex(std::string_view hex, std::string &bytes);

// "350 µs", "12.3 ms", "4.20 s"
std::string durationText(std::int64_t microseconds);

// "1 packet", "2 packets"
std::string countText(std::uint64_t count, const char *noun);

// "2026-11-21 06:26:32 UTC", from microseconds since the epoch
std::string dateText(std::int64_t microseconds);
// "2026-11-21T06:26:32Z"
std::string isoDate(std::int64_t microseconds);

}  // namespace arvl_host

#endif  // ARVL_HOST_TEXT_TRACE_TEXT_H_
