// Files that are written under a temporary name and renamed when they are complete.
#ifndef ARVL_HOST_FILES_TEMPORARY_FILE_H_
#define ARVL_HOST_FILES_TEMPORARY_FILE_H_

#include <cstddef>
#include <string>
#include <string_view>

#include "files/place.h"
#include "files/sha256.h"
#include "files/unique_fd.h"

namespace arvl_host {

enum class Durability {
  kEachFile,      // each file is synced before it is renamed
  kLeftToCaller,  // the caller syncs the whole file system later
};

// Returns the temporary name for a file. The name depends on the file's name alone. So a host finds the
// leftover of a killed host, and notices another host that writes the same file.
std::string temporaryName(const std::string &name);

// Removes the entry `name` from the directory of the place. Throws StoreError if another transfer is writing it
// or it cannot be removed.
void removeLeftover(const Place &place, const std::string &name);

// A locked temporary file in the directory of the place. The destructor removes it unless it was
// committed. Always creates a new file, because a leftover may have hard links or belong to another
// user. Throws StoreError.
class TemporaryFile {
 public:
  // `to` must outlive it.
  explicit TemporaryFile(const Place &to);
  ~TemporaryFile();
  TemporaryFile(const TemporaryFile &) = delete;
  TemporaryFile &operator=(const TemporaryFile &) = delete;

  int fd() const { return file_.get(); }
  void write(const char *data, std::size_t size);
  // Leaves a hole of `size` bytes, even at the end.
  void skip(off_t size);

  // Renames the file to its place, and replaces an existing entry.
  void commit(Durability durability);

 private:
  bool create();
  bool isOurs() const;

  const Place &to_;
  const std::string name_;
  UniqueFd file_;
  bool isCommitted_ = false;
  off_t size_ = 0;
  off_t begun_ = 0;  // bytes that the kernel was asked to write to disk
};

// Gathers text for a temporary file into large writes.
class TextWriter {
 public:
  explicit TextWriter(TemporaryFile &file) : file_(file) {}

  void add(std::string_view text);
  // Writes the remaining text and returns the checksum of the whole.
  std::string finish();

 private:
  void flush();
  void write(std::string_view text);

  TemporaryFile &file_;
  std::string buffer_;
  Sha256 digest_;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_FILES_TEMPORARY_FILE_H_
