#include "files/file_type.h"

namespace arvl_host {

const char *fileTypeText(FileType type) {
  switch (type) {
    case FileType::kFile:
      return "file";
    case FileType::kDir:
      return "dir";
    case FileType::kSymlink:
      return "symlink";
  }
  return "";
}

std::optional<FileType> fileTypeNamed(const std::string &text) {
  for (const FileType type : {FileType::kFile, FileType::kDir, FileType::kSymlink}) {
    if (text == fileTypeText(type)) {
      return type;
    }
  }
  return std::nullopt;
}

std::optional<FileType> fileTypeOf(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFREG:
      return FileType::kFile;
    case S_IFDIR:
      return FileType::kDir;
    case S_IFLNK:
      return FileType::kSymlink;
    default:
      return std::nullopt;
  }
}

}  // namespace arvl_host
