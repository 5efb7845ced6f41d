// Formats sizes and counts for people.
#ifndef ARVL_HOST_TEXT_SIZES_H_
#define ARVL_HOST_TEXT_SIZES_H_

#include <cstdint>
#include <string>

namespace arvl_host {

// "0 B", "999 B", "1.0 KiB", "56.1 MiB"
std::string sizeText(std::uint64_t bytes);

// "1 packet", "2 packets"
std::string countText(std::uint64_t count, const char *noun);

}  // namespace arvl_host

#endif  // ARVL_HOST_TEXT_SIZES_H_
