#include "backup/backup_id.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace arvl_host {

namespace {

const std::string kPartial = ".partial";
constexpr std::int64_t kMillisecond = 1000;  // in microseconds

// Returns the microseconds since the epoch in an id that backupId() made.
std::int64_t timeOf(const std::string &id) {
  std::tm date = {};
  const char *rest = strptime(id.c_str(), "%Y%m%dT%H%M%S", &date);
  return timegm(&date) * 1000000 + std::strtol(rest + 1, nullptr, 10) * kMillisecond;
}

}  // namespace

std::string backupId(std::int64_t microseconds) {
  const std::time_t seconds = microseconds / 1000000;
  std::tm date = {};
  gmtime_r(&seconds, &date);
  char day[32];
  char text[48];
  std::strftime(day, sizeof day, "%Y%m%dT%H%M%S", &date);
  std::snprintf(text, sizeof text, "%s.%03dZ", day,
                static_cast<int>(microseconds % 1000000 / 1000));
  return text;
}

std::string nextBackupId(const std::string &id) {
  return backupId(timeOf(id) + kMillisecond);
}

bool isBackupId(const std::string &name) {
  static const std::string form = "00000000T000000.000Z";
  return name.size() == form.size() &&
         std::equal(name.begin(), name.end(), form.begin(), [](char c, char expected) {
           return expected == '0' ? c >= '0' && c <= '9' : c == expected;
         });
}

std::string partialName(const std::string &id) {
  return id + kPartial;
}

bool isPartialName(const std::string &name) {
  return name.size() > kPartial.size() && isBackupId(idOfPartial(name)) &&
         partialName(idOfPartial(name)) == name;
}

std::string idOfPartial(const std::string &name) {
  return name.substr(0, name.size() - kPartial.size());
}

}  // namespace arvl_host
