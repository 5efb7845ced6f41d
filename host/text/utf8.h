// Checks text from outside, which may contain any bytes, and makes it safe to show.
#ifndef ARVL_HOST_TEXT_UTF8_H_
#define ARVL_HOST_TEXT_UTF8_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace arvl_host {

bool isUtf8(std::string_view text);

// Returns at most the first `limit` bytes of text. Splits no character.
std::string_view cutText(std::string_view text, std::size_t limit);

// Returns text as one line for a terminal or a page. Escapes hidden characters and invalid bytes as \n, \x1b,
// \u202e.
std::string visibleText(std::string_view text);

}  // namespace arvl_host

#endif  // ARVL_HOST_TEXT_UTF8_H_
