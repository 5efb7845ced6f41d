// The characters of a text that may hold any bytes.
#ifndef ARVL_HOST_TEXT_CHARACTERS_H_
#define ARVL_HOST_TEXT_CHARACTERS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace arvl_host {

struct Character {
  std::uint32_t codePoint;  // or the byte, where no character begins
  std::size_t length;       // in bytes
  bool valid;
};

// Returns the character that begins at index, which is below the size of the text. A byte that begins no
// character of UTF-8 is returned as a character that is not valid.
Character characterAt(std::string_view text, std::size_t index);

// Tells whether a character is a control character, or one that hides or reorders its neighbours.
bool isHidden(std::uint32_t codePoint);

// Returns the letter of the short escape of a character ('n' for a line feed), or 0 if there is none.
char shortEscape(std::uint32_t codePoint);

// Appends \x and two hexadecimal digits, or \u and four.
void appendEscape(std::string &out, char letter, unsigned number);

}  // namespace arvl_host

#endif  // ARVL_HOST_TEXT_CHARACTERS_H_
