// The paths of entries, as a backup records them.
#ifndef ARVL_HOST_BACKUP_ENTRY_PATH_H_
#define ARVL_HOST_BACKUP_ENTRY_PATH_H_

#include <cstddef>
#include <string>
#include <utility>

namespace arvl_host {

// Returns why the part of `path` from `begin` on is not a valid entry path, or an empty string. An
// invalid path could lead out of the backup.
std::string checkEntryPath(const std::string &path, std::size_t begin);

// Splits a path at its last slash into the directory and the name. Entries are sorted by this pair.
std::pair<std::string, std::string> splitEntryPath(const std::string &path);

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_ENTRY_PATH_H_
