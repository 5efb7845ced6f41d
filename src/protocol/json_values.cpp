#include "protocol/json_values.h"

#include <algorithm>

namespace ZARN {
namespace ARVLAPP {

namespace {

// Each returns where what begins at the index ends: behind it, as the parser sees it.
std::size_t endOfString(std::string_view text, std::size_t index) {
  for (++index; index < text.size() && text[index] != '"'; ++index) {
    if (text[index] == '\\') {
      ++index;
    }
  }
  return index + 1;
}

std::size_t endOfComment(std::string_view text, std::size_t index) {
  const std::string_view mark = text.substr(index, 2);
  if (mark == "/*") {
    const std::size_t end = text.find("*/", index + 2);
    return end == std::string_view::npos ? text.size() : end + 2;
  }
  return mark == "//" ? std::min(text.find_first_of("\r\n", index), text.size()) : index + 1;
}

}  // namespace

// One value is there, each opening bracket may bring a first element, and each comma brings one more.
std::size_t countJsonValues(std::string_view text) {
  std::size_t count = 1;
  for (std::size_t index = 0; index < text.size();) {
    switch (text[index]) {
      case '"':
        index = endOfString(text, index);
        break;
      case '/':
        index = endOfComment(text, index);
        break;
      case ',':
      case '[':
      case '{':
        ++count;
        [[fallthrough]];
      default:
        ++index;
    }
  }
  return count;
}

}  // namespace ARVLAPP
}  // namespace ZARN
