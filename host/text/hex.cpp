#include "text/hex.h"

namespace arvl_host {

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

int hexValue(char digit) {
  const std::string_view digits(kHexDigits);
  const std::size_t value = digits.find(digit);
  return value == std::string_view::npos ? -1 : static_cast<int>(value);
}

}  // namespace

std::string toHex(std::string_view bytes) {
  std::string hex;
  hex.reserve(2 * bytes.size());
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    hex += kHexDigits[byte >> 4U];
    hex += kHexDigits[byte & 0xFU];
  }
  return hex;
}

bool fromHex(std::string_view hex, std::string &bytes) {
  bytes.clear();
  for (std::size_t at = 0; at + 1 < hex.size(); at += 2) {
    const int high = hexValue(hex[at]);
    const int low = hexValue(hex[at + 1]);
    if (high < 0 || low < 0) {
      return false;
    }
    bytes += static_cast<char>(high * 16 + low);
  }
  return hex.size() % 2 == 0;
}

}  // namespace arvl_host
