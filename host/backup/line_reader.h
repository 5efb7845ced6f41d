// Reads a file that describes a backup line by line.
#ifndef ARVL_HOST_BACKUP_LINE_READER_H_
#define ARVL_HOST_BACKUP_LINE_READER_H_

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

namespace arvl_host {

// Owns the open file and counts its lines for the messages.
class LineReader {
 public:
  // Throws CannotExamine, StoreError.
  explicit LineReader(std::filesystem::path path);

  // Returns false at the end of the file. Throws StoreError.
  bool read(std::string &line);
  // Returns the number of calls of read(): the line number for messages.
  std::uint64_t number() const { return number_; }
  const std::filesystem::path &path() const { return path_; }

  // Throws StoreError with the file and the line.
  [[noreturn]] void fail(const std::string &problem) const;

 private:
  const std::filesystem::path path_;
  std::ifstream stream_;
  std::uint64_t number_ = 0;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_LINE_READER_H_
