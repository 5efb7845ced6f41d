// What a job, or a look at a store, came to: in JSON, and for a person. docs/backup.md describes the
// JSON.
#ifndef ARVL_HOST_BACKUP_REPORT_H_
#define ARVL_HOST_BACKUP_REPORT_H_

#include <json/value.h>

#include <string>
#include <vector>

#include "backup/job.h"

namespace arvl_host {

Json::Value reportJson(const JobReport &report);

// Of a command that came to nothing.
Json::Value errorJson(const std::string &command, int exitCode, const std::string &error);

// A few lines on a job that succeeded; none on one that did not, whose error has been shown.
std::vector<std::string> reportLines(const JobReport &report);

// "204 files, 3 folders, 1 link, 12.1 MiB"; what there is none of is left out, but for files.
std::string totalsText(const Totals &totals);

// Pretty, with a line feed at the end; in strict JSON, whatever bytes the strings hold. Of a value that
// nests too deep for the usual readers, what is further down is null.
std::string jsonText(const Json::Value &value);

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_REPORT_H_
