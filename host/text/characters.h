// The characters of a text that may contain any bytes.
#ifndef ARVL_HOST_TEXT_CHARACTERS_H_
#define ARVL_HOST_TEXT_CHARACTERS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace arvl_host {

struct Character {
  std::uint32_t codePoint;  // or the byte, if it is not valid UTF-8
  std::size_t length;       // in bytes
  bool valid;
};

// Returns the character that begins at `index`, which must be below the size of the text. Returns a single byte
// as an invalid character if no UTF-8 character begins there.
Character characterAt(std::string_view text, std::size_t index);

// Returns whether a character is a control character, invisible, or reorders its neighbours.
bool isHidden(std::uint32_t codePoint);

// Returns the letter of the short escape of a character ('n' for a line feed), or 0 if it has none.
char shortEscape(std::uint32_t codePoint);

// Appends \x and two hexadecimal digits, or \u and four.
void appendEscape(std::string &out, char letter, unsigned number);

}  // namespace arvl_host

#endif  // ARVL_HOST_TEXT_CHARACTERS_H_
