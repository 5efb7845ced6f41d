// The types of entries that are copied, listed and recorded.
#ifndef ARVL_HOST_FILES_FILE_TYPE_H_
#define ARVL_HOST_FILES_FILE_TYPE_H_

#include <sys/stat.h>

#include <optional>
#include <string>

namespace arvl_host {

enum class FileType { kFile, kDir, kSymlink };

// Returns the type as packets and manifests name it: "file", "dir", "symlink".
const char *fileTypeText(FileType type);

// Returns the type of that name, or nothing for an unknown name.
std::optional<FileType> fileTypeNamed(const std::string &text);

// Returns the type in a mode of stat(2), or nothing for a FIFO, socket or device.
std::optional<FileType> fileTypeOf(mode_t mode);

}  // namespace arvl_host

#endif  // ARVL_HOST_FILES_FILE_TYPE_H_
