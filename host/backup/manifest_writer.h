// Writes the files that describe a backup: manifest.json and SHA256SUMS.
#ifndef ARVL_HOST_BACKUP_MANIFEST_WRITER_H_
#define ARVL_HOST_BACKUP_MANIFEST_WRITER_H_

#include <filesystem>
#include <functional>

#include "backup/file_index.h"
#include "backup/manifest.h"

namespace arvl_host {

// Writes both files into the directory of the backup, the manifest last. SHA256SUMS holds the manifest's
// checksum too. Calls `checkpoint` for each entry; an exception from it propagates. Throws StoreError.
void writeManifest(
    const std::filesystem::path &folder, const Manifest &manifest, FileIndex &files,
    const std::function<void()> &checkpoint = [] {});

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_MANIFEST_WRITER_H_
