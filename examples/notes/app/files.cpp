#include "app/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "app/sha256.h"

namespace fs = std::filesystem;

namespace notes {
namespace {

using Buffer = std::array<char, 65536>;

void writeAll(int fd, const char *bytes, std::size_t size, const fs::path &file) {
  while (size > 0) {
    const ssize_t written = ::write(fd, bytes, size);
    if (written < 0 && errno != EINTR) {
      throwErrno(file);
    }
    if (written > 0) {
      bytes += written;
      size -= static_cast<std::size_t>(written);
    }
  }
}

// Owns a new file with a temporary name. Removes it unless it gets another name.
class NewFile {
 public:
  explicit NewFile(const fs::path &directory)
      : name_((directory / ".new-XXXXXX").string()), fd_(::mkostemp(name_.data(), O_CLOEXEC)) {
    if (fd_.get() < 0) {
      throwErrno(name_);
    }
  }
  ~NewFile() {
    if (!name_.empty()) {
      ::unlink(name_.c_str());
    }
  }
  NewFile(const NewFile &) = delete;
  NewFile &operator=(const NewFile &) = delete;

  void write(const char *bytes, std::size_t size) { writeAll(fd_.get(), bytes, size, name_); }

  void keepAs(const fs::path &file) {
    if (::fsync(fd_.get()) != 0 || ::rename(name_.c_str(), file.c_str()) != 0) {
      throwErrno(file);
    }
    name_.clear();
    syncDirectory(file.parent_path());
  }

 private:
  std::string name_;
  Fd fd_;
};

}  // namespace

Fd::~Fd() {
  if (fd_ >= 0) {
    ::close(fd_);
  }
}

void throwErrno(const fs::path &file) {
  throw std::system_error(errno, std::generic_category(), file.string());
}

Fd openDirectory(const fs::path &directory) {
  Fd fd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (fd.get() < 0) {
    throwErrno(directory);
  }
  return fd;
}

Digest digestFile(const fs::path &file) {
  const Fd fd(::open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status = {};
  if (fd.get() < 0 || ::fstat(fd.get(), &status) != 0) {
    throwErrno(file);
  }
  if (!S_ISREG(status.st_mode)) {
    throw std::system_error(EINVAL, std::generic_category(), file.string());
  }
  Digest digest;
  Sha256 hash;
  Buffer buffer;
  for (;;) {
    const ssize_t size = ::read(fd.get(), buffer.data(), buffer.size());
    if (size < 0 && errno == EINTR) {
      continue;
    }
    if (size < 0) {
      throwErrno(file);
    }
    if (size == 0) {
      digest.sha256 = hash.finish();
      return digest;
    }
    hash.update(buffer.data(), static_cast<std::size_t>(size));
    digest.size += size;
  }
}

Digest keepContent(std::istream &in, const fs::path &directory) {
  NewFile file(directory);
  Digest digest;
  Sha256 hash;
  Buffer buffer;
  while (in.read(buffer.data(), buffer.size()) || in.gcount() > 0) {
    const auto size = static_cast<std::size_t>(in.gcount());
    file.write(buffer.data(), size);
    hash.update(buffer.data(), size);
    digest.size += in.gcount();
  }
  if (in.bad()) {
    throw std::runtime_error("reading the attachment failed");
  }
  digest.sha256 = hash.finish();
  file.keepAs(directory / digest.sha256);
  return digest;
}

void syncDirectory(const fs::path &directory) {
  if (::fsync(openDirectory(directory).get()) != 0) {
    throwErrno(directory);
  }
}

void syncFileSystem(const fs::path &anyDirectory) {
  if (::syncfs(openDirectory(anyDirectory).get()) != 0) {
    throwErrno(anyDirectory);
  }
}

}  // namespace notes
