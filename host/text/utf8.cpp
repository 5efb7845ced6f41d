#include "text/utf8.h"

#include "text/characters.h"

namespace arvl_host {

bool isUtf8(std::string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    const Character c = characterAt(text, i);
    if (!c.valid) {
      return false;
    }
    i += c.length;
  }
  return true;
}

std::string_view cutText(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) {
    return text;
  }
  for (std::size_t back = 1; back <= 3 && back <= limit; ++back) {
    const Character c = characterAt(text, limit - back);
    if (c.valid && c.length > back) {
      return text.substr(0, limit - back);
    }
  }
  return text.substr(0, limit);
}

std::string visibleText(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const Character c = characterAt(text, at);
    if (const char letter = c.valid ? shortEscape(c.codePoint) : '\0') {
      out.append("\\").append(1, letter);
    } else if (!c.valid || (isHidden(c.codePoint) && c.codePoint < 0x80)) {
      appendEscape(out, 'x', c.codePoint);
    } else if (isHidden(c.codePoint)) {
      appendEscape(out, 'u', c.codePoint);
    } else {
      out.append(text.substr(at, c.length));
    }
    at += c.length;
  }
  return out;
}

}  // namespace arvl_host
