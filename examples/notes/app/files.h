// POSIX file functions of the application. Failures are std::system_error and name the file.
#ifndef NOTES_APP_FILES_H_
#define NOTES_APP_FILES_H_

#include <cstdint>
#include <filesystem>
#include <istream>
#include <string>
#include <utility>

namespace notes {

// Owns a descriptor.
class Fd {
 public:
  explicit Fd(int fd) : fd_(fd) {}
  Fd(Fd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Fd &operator=(Fd &&other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Fd();

  int get() const { return fd_; }

 private:
  int fd_;
};

// Throws std::system_error for errno.
[[noreturn]] void throwErrno(const std::filesystem::path &file);

// Opens a directory; a symbolic link is refused.
Fd openDirectory(const std::filesystem::path &directory);

struct Digest {
  std::int64_t size = 0;
  std::string sha256;
};

// Reads a regular file; a symbolic link is refused.
Digest digestFile(const std::filesystem::path &file);

// Writes the stream to a file in the directory, named by its SHA-256. The file gets its name only when
// it is complete and synced.
Digest keepContent(std::istream &in, const std::filesystem::path &directory);

// Syncs the directory.
void syncDirectory(const std::filesystem::path &directory);

// Syncs the whole file system.
void syncFileSystem(const std::filesystem::path &anyDirectory);

}  // namespace notes

#endif  // NOTES_APP_FILES_H_
