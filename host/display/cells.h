// How much room texts take on a terminal.
#ifndef ARVL_HOST_DISPLAY_CELLS_H_
#define ARVL_HOST_DISPLAY_CELLS_H_

#include <string>
#include <string_view>

namespace arvl_host {

// Of UTF-8, whatever the user's locale is: a wide character takes two cells, one that combines with the
// last takes none, a byte that belongs to no character takes one.
unsigned cellsOf(std::string_view text);

// Text that takes no more cells: what is cut off is replaced by "…".
std::string cutToCells(const std::string &text, unsigned columns);

}  // namespace arvl_host

#endif  // ARVL_HOST_DISPLAY_CELLS_H_
