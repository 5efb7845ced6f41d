#include "zarn/arvlapp/file_info.h"

namespace ZARN {
namespace ARVLAPP {

namespace {

enum class FileType { kNone, kRegular, kDirectory, kSymlink };

}  // namespace

struct FileInfo::FileInfoImpl {
  long mtime = 0;
  long sizeByte = -1;
  std::string path;
  FileType type = FileType::kNone;
  bool temp = false;
};

FileInfo::FileInfo() : impl_(std::make_unique<FileInfoImpl>()) {}

FileInfo::FileInfo(const FileInfo &other) : FileInfo() {
  *this = other;
}

FileInfo &FileInfo::operator=(const FileInfo &other) {
  if (this != &other) {
    *impl_ = *other.impl_;
  }
  return *this;
}

FileInfo::~FileInfo() = default;

void FileInfo::setPath(const std::string &path) {
  impl_->path = path;
}

std::string FileInfo::getPath() const {
  return impl_->path;
}

void FileInfo::setSizeByte(long bytes) {
  impl_->sizeByte = bytes;
}

long FileInfo::getSizeByte() const {
  return impl_->sizeByte;
}

void FileInfo::setMtime(long seconds) {
  impl_->mtime = seconds;
}

long FileInfo::getMtime() const {
  return impl_->mtime;
}

void FileInfo::setRegType() {
  impl_->type = FileType::kRegular;
}

void FileInfo::setDirType() {
  impl_->type = FileType::kDirectory;
}

void FileInfo::setSymlinkType() {
  impl_->type = FileType::kSymlink;
}

bool FileInfo::isRegType() const {
  return impl_->type == FileType::kRegular;
}

bool FileInfo::isDirType() const {
  return impl_->type == FileType::kDirectory;
}

bool FileInfo::isSymlinkType() const {
  return impl_->type == FileType::kSymlink;
}

void FileInfo::setTemp(bool temp) {
  impl_->temp = temp;
}

bool FileInfo::isTemp() const {
  return impl_->temp;
}

std::string FileInfo::getTypeStr() const {
  switch (impl_->type) {
    case FileType::kNone:
      return "none";
    case FileType::kRegular:
      return "file";
    case FileType::kDirectory:
      return "dir";
    case FileType::kSymlink:
      return "symlink";
  }
  return "err";  // GCOVR_EXCL_LINE: no setter stores another code
}

}  // namespace ARVLAPP
}  // namespace ZARN
