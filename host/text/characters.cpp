#include "text/characters.h"

namespace arvl_host {

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

unsigned byteAt(std::string_view text, std::size_t index) {
  return static_cast<unsigned char>(text[index]);
}

bool isContinuation(std::string_view text, std::size_t index) {
  return index < text.size() && (byteAt(text, index) & 0xC0U) == 0x80U;
}

// Returns the length of the character that begins with `lead`, or 0 if none does.
std::size_t announcedLength(unsigned lead) {
  if (lead < 0x80) {
    return 1;
  }
  if (lead >= 0xC2 && lead <= 0xDF) {
    return 2;
  }
  if ((lead & 0xF0U) == 0xE0) {
    return 3;
  }
  return lead >= 0xF0 && lead <= 0xF4 ? 4 : 0;
}

bool isWellFormed(std::uint32_t codePoint, std::size_t length) {
  if (length == 3) {
    return codePoint >= 0x800 && (codePoint < 0xD800 || codePoint > 0xDFFF);
  }
  return length != 4 || (codePoint >= 0x10000 && codePoint <= 0x10FFFF);
}

}  // namespace

Character characterAt(std::string_view text, std::size_t index) {
  const unsigned lead = byteAt(text, index);
  const std::size_t length = announcedLength(lead);
  std::uint32_t codePoint = length > 1 ? lead & (0x7FU >> length) : lead;
  for (std::size_t i = 1; i < length; ++i) {
    if (!isContinuation(text, index + i)) {
      return {lead, 1, false};
    }
    codePoint = codePoint << 6U | (byteAt(text, index + i) & 0x3FU);
  }
  if (length == 0 || !isWellFormed(codePoint, length)) {
    return {lead, 1, false};
  }
  return {codePoint, length, true};
}

bool isHidden(std::uint32_t c) {
  return c < 0x20 || (c >= 0x7F && c <= 0x9F) || (c >= 0x200B && c <= 0x200F) ||
         (c >= 0x2028 && c <= 0x202E) || (c >= 0x2060 && c <= 0x206F) || c == 0xFEFF;
}

void appendEscape(std::string &out, char letter, unsigned number) {
  out.append("\\").append(1, letter);
  for (unsigned shift = letter == 'x' ? 8 : 16; shift > 0;) {
    shift -= 4;
    out += kHexDigits[number >> shift & 0xFU];
  }
}

char shortEscape(std::uint32_t c) {
  switch (c) {
    case '\b':
      return 'b';
    case '\f':
      return 'f';
    case '\n':
      return 'n';
    case '\r':
      return 'r';
    case '\t':
      return 't';
    default:
      return 0;
  }
}

}  // namespace arvl_host
