// Reports the result of a command in JSON and for a person. docs/backup.md describes the JSON.
#ifndef ARVL_HOST_BACKUP_REPORT_H_
#define ARVL_HOST_BACKUP_REPORT_H_

#include <json/value.h>

#include <iosfwd>
#include <string>
#include <vector>

#include "backup/job.h"

namespace arvl_host {

Json::Value reportJson(const JobReport &report);

// Returns the members that every report has.
Json::Value errorJson(const std::string &command, int exitCode, const std::string &error);

// Returns a few lines about a job that succeeded. Returns an empty list for a failed job, because its
// error was already shown.
std::vector<std::string> reportLines(const JobReport &report);

// "204 files, 3 folders, 1 link, 12.1 MiB", without directories or links if there are none.
std::string totalsText(const Totals &totals);

// Prints indented strict JSON with a line feed at the end, whatever bytes the strings hold. Prints null in place of
// arrays and objects that nest too deep for the usual readers.
void printJson(std::ostream &out, const Json::Value &value);

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_REPORT_H_
