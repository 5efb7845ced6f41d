#include "text/dates.h"

#include <ctime>

namespace arvl_host {

std::string dateText(std::int64_t microseconds) {
  const std::time_t seconds = microseconds / 1000000;
  std::tm date = {};
  char text[64] = "";
  if (gmtime_r(&seconds, &date) != nullptr) {
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &date);
  }
  return text;
}

std::string isoDate(std::int64_t microseconds) {
  const std::string text = dateText(microseconds);
  return text.empty() ? "" : text.substr(0, 10) + "T" + text.substr(11, 8) + "Z";
}

}  // namespace arvl_host
