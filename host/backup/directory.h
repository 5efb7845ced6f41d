// The directories of a store.
#ifndef ARVL_HOST_BACKUP_DIRECTORY_H_
#define ARVL_HOST_BACKUP_DIRECTORY_H_

#include <sys/types.h>

#include <filesystem>

#include "files/unique_fd.h"

namespace arvl_host {

// Opens a directory. Throws StoreError.
UniqueFd openDirectory(const std::filesystem::path &path);

// Creates a directory if it does not exist. Throws StoreError.
void makeDirectory(const std::filesystem::path &path, mode_t mode);

// Writes a directory, not the files in it, to the disk. Throws StoreError.
void syncDirectory(const std::filesystem::path &path);

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_DIRECTORY_H_
