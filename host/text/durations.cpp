#include "text/durations.h"

#include <algorithm>
#include <cstdio>

namespace arvl_host {

double secondsSince(std::chrono::steady_clock::time_point begin) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

std::string durationText(std::int64_t microseconds) {
  char text[48];
  if (microseconds < 1000) {
    std::snprintf(text, sizeof text, "%lld µs", static_cast<long long>(microseconds));
  } else if (microseconds < 1000000) {
    std::snprintf(text, sizeof text, "%.1f ms", static_cast<double>(microseconds) / 1e3);
  } else {
    std::snprintf(text, sizeof text, "%.2f s", static_cast<double>(microseconds) / 1e6);
  }
  return text;
}

std::string clockText(double seconds) {
  const auto whole = seconds > 0 ? static_cast<long long>(std::min(seconds, 1e15)) : 0;
  char text[48];
  if (whole < 3600) {
    std::snprintf(text, sizeof text, "%lld:%02lld", whole / 60, whole % 60);
  } else {
    std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60,
                  whole % 60);
  }
  return text;
}

}  // namespace arvl_host
