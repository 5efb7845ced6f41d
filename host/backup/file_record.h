// The record of one entry of a backup.
#ifndef ARVL_HOST_BACKUP_FILE_RECORD_H_
#define ARVL_HOST_BACKUP_FILE_RECORD_H_

#include <cstdint>
#include <string>

#include "files/file_type.h"

namespace arvl_host {

struct FileRecord {
  std::string path;  // inside the store: "/notes/notes.db"
  FileType type = FileType::kFile;
  std::int64_t size = 0;  // of a file's content or a link's target, in bytes; 0 for a directory
  unsigned mode = 0;      // permissions
  std::int64_t mtime = 0;
  std::int64_t mtimeNsec = 0;
  std::string sha256;  // of a file's content or a link's target; empty for a directory
  std::string target;  // of a link
};

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_FILE_RECORD_H_
