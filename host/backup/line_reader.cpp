#include "backup/line_reader.h"

#include <cerrno>
#include <utility>

#include "backup/backup_file.h"

namespace arvl_host {

namespace {

std::ifstream openStream(const std::filesystem::path &path) {
  const UniqueFd file = openBackupFile(path);
  return std::ifstream("/proc/self/fd/" + std::to_string(file.get()), std::ios::binary);
}

}  // namespace

LineReader::LineReader(std::filesystem::path path)
    : path_(std::move(path)), stream_(openStream(path_)) {}

bool LineReader::read(std::string &line) {
  ++number_;
  if (std::getline(stream_, line)) {
    return true;
  }
  if (stream_.bad()) {
    failWith(errno, "cannot read " + quoted(path_));
  }
  return false;
}

void LineReader::fail(const std::string &problem) const {
  throw StoreError(quoted(path_) + ", line " + std::to_string(number_) + ": " + problem);
}

}  // namespace arvl_host
