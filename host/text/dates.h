// Dates in UTC, from microseconds since the epoch. The texts are empty if the year does not fit.
#ifndef ARVL_HOST_TEXT_DATES_H_
#define ARVL_HOST_TEXT_DATES_H_

#include <cstdint>
#include <string>

namespace arvl_host {

// Returns the time by the system clock.
std::int64_t microsecondsNow();

// "2026-11-21 06:26:32 UTC"
std::string dateText(std::int64_t microseconds);

// "2026-11-21T06:26:32Z"
std::string isoDate(std::int64_t microseconds);

}  // namespace arvl_host

#endif  // ARVL_HOST_TEXT_DATES_H_
