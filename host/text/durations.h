// Measures durations and formats them for people.
#ifndef ARVL_HOST_TEXT_DURATIONS_H_
#define ARVL_HOST_TEXT_DURATIONS_H_

#include <chrono>
#include <cstdint>
#include <string>

namespace arvl_host {

// Returns the seconds since then, by the monotonic clock.
double secondsSince(std::chrono::steady_clock::time_point begin);

// "350 µs", "12.3 ms", "4.20 s"
std::string durationText(std::int64_t microseconds);

// "0:07", "1:02:03"
std::string clockText(double seconds);

}  // namespace arvl_host

#endif  // ARVL_HOST_TEXT_DURATIONS_H_
