#include "text/sizes.h"

#include <cstdio>
#include <iterator>

namespace arvl_host {

std::string sizeText(std::uint64_t bytes) {
  static constexpr const char *kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  auto size = static_cast<double>(bytes);
  const char *const *unit = kUnits;
  // A size that would be rounded to 1024.0 becomes 1.0 of the next unit.
  while (size >= 1023.95 && unit != std::end(kUnits) - 1) {
    size /= 1024;
    ++unit;
  }
  char text[64];
  std::snprintf(text, sizeof text, unit == kUnits ? "%.0f %s" : "%.1f %s", size, *unit);
  return text;
}

std::string countText(std::uint64_t count, const char *noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

}  // namespace arvl_host
