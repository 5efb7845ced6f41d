#include "display/cells.h"

#include <clocale>
#include <cwchar>
#include <limits>

namespace arvl_host {

namespace {

// Switches this thread to a UTF-8 locale, the only kind in which the C library decodes UTF-8 and knows its width.
class Utf8Scope {
 public:
  Utf8Scope() : previous_(uselocale(utf8())) {}
  ~Utf8Scope() { uselocale(previous_); }
  Utf8Scope(const Utf8Scope &) = delete;
  Utf8Scope &operator=(const Utf8Scope &) = delete;

 private:
  static locale_t utf8() {
    static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return locale;
  }

  const locale_t previous_;
};

struct Extent {
  std::size_t bytes = 0;
  unsigned cells = 0;
};

Extent firstCharacter(std::string_view text) {
  wchar_t character = 0;
  std::mbstate_t state = {};
  const std::size_t bytes = std::mbrtowc(&character, text.data(), text.size(), &state);
  if (bytes == 0 || bytes > text.size()) {
    return {1, 1};
  }
  const int cells = wcwidth(character);
  return {bytes, cells < 0 ? 1 : static_cast<unsigned>(cells)};
}

// Returns the longest beginning of the text that fits, with the combining characters of its last character.
Extent fit(std::string_view text, unsigned columns) {
  const Utf8Scope scope;
  Extent whole;
  while (whole.bytes < text.size()) {
    const Extent next = firstCharacter(text.substr(whole.bytes));
    if (next.cells > columns - whole.cells) {
      break;
    }
    whole.bytes += next.bytes;
    whole.cells += next.cells;
  }
  return whole;
}

}  // namespace

unsigned cellsOf(std::string_view text) {
  return fit(text, std::numeric_limits<unsigned>::max()).cells;
}

std::string cutToCells(const std::string &text, unsigned columns) {
  if (columns == 0) {
    return "";
  }
  return fit(text, columns).bytes == text.size()
             ? text
             : text.substr(0, fit(text, columns - 1).bytes) + "…";
}

}  // namespace arvl_host
