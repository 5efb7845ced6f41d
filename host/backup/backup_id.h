// The names of backups' directories.
#ifndef ARVL_HOST_BACKUP_BACKUP_ID_H_
#define ARVL_HOST_BACKUP_BACKUP_ID_H_

#include <cstdint>
#include <string>

namespace arvl_host {

// Returns the id of a backup of this time, to the millisecond: "20261121T092532.123Z". Ids sort by time.
std::string backupId(std::int64_t microseconds);

// Returns the id that comes after `id`.
std::string nextBackupId(const std::string &id);

bool isBackupId(const std::string &name);

// The name of an unfinished backup: its id with an ending.
std::string partialName(const std::string &id);
bool isPartialName(const std::string &name);
// Returns the id in such a name.
std::string idOfPartial(const std::string &name);

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_BACKUP_ID_H_
