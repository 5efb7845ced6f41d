// Text from outside, made safe to show. Nothing here trusts it to be UTF-8.
#ifndef ARVL_HOST_TEXT_UTF8_H_
#define ARVL_HOST_TEXT_UTF8_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace arvl_host {

bool isUtf8(std::string_view text);

// Returns the first bytes of text, at most limit. No character is cut in two.
std::string_view cutText(std::string_view text, std::size_t limit);

// Returns text as one line for a terminal or a page: control characters and bytes that belong to no
// character appear as \n, \x1b, \u202e.
std::string visibleText(std::string_view text);

}  // namespace arvl_host

#endif  // ARVL_HOST_TEXT_UTF8_H_
