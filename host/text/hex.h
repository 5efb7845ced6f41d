// Bytes as hexadecimal digits.
#ifndef ARVL_HOST_TEXT_HEX_H_
#define ARVL_HOST_TEXT_HEX_H_

#include <string>
#include <string_view>

namespace arvl_host {

std::string toHex(std::string_view bytes);

// Decodes pairs of lowercase hexadecimal digits into `bytes`. Returns false for any other text.
bool fromHex(std::string_view hex, std::string &bytes);

}  // namespace arvl_host

#endif  // ARVL_HOST_TEXT_HEX_H_
