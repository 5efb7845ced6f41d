// The width of text on a terminal.
#ifndef ARVL_HOST_DISPLAY_CELLS_H_
#define ARVL_HOST_DISPLAY_CELLS_H_

#include <string>
#include <string_view>

namespace arvl_host {

// Returns the number of cells that UTF-8 text takes, in any locale: two for a wide character, none for a combining
// one, one for an invalid byte.
unsigned cellsOf(std::string_view text);

// Returns text of at most `columns` cells. Replaces the rest of longer text with "…".
std::string cutToCells(const std::string &text, unsigned columns);

}  // namespace arvl_host

#endif  // ARVL_HOST_DISPLAY_CELLS_H_
