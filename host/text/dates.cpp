#include "text/dates.h"

#include <chrono>
#include <ctime>

namespace arvl_host {

std::int64_t microsecondsNow() {
  const auto time = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::microseconds>(time).count();
}

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
