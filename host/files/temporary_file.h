// Files that are written under another name, and get their own when they are whole.
#ifndef ARVL_HOST_FILES_TEMPORARY_FILE_H_
#define ARVL_HOST_FILES_TEMPORARY_FILE_H_

#include <cstddef>
#include <string>
#include <string_view>

#include "files/sha256.h"
#include "files/unique_fd.h"

namespace arvl_host {

// An entry by the folder that holds it; shown is how messages name it.
struct Place {
  int folder;
  std::string name;
  std::string shown;
};

// When a file is safe from a loss of power: before it gets its name, or when the caller has synced the
// whole file system.
enum class Durability { kEachFile, kLeftToCaller };

// Made from the name that it stands for: what a killed host left is found again, and two hosts that
// write the same file meet.
std::string temporaryName(const std::string &name);

// Removes what has that name in the directory of the place. Throws StoreError if another transfer writes it,
// or if it cannot be removed.
void removeLeftover(const Place &place, const std::string &name);

// A file beside the place that nobody else writes, taken away again unless it is committed. It is always a new
// one: a leftover may have other names, or be another user's. Throws StoreError.
class TemporaryFile {
 public:
  // to has to outlive it.
  explicit TemporaryFile(const Place &to);
  ~TemporaryFile();
  TemporaryFile(const TemporaryFile &) = delete;
  TemporaryFile &operator=(const TemporaryFile &) = delete;

  int fd() const { return file_.get(); }
  void write(const char *data, std::size_t size);
  // Leaves a hole of so many bytes, even at the end.
  void skip(off_t size);

  // Replaces what has the name.
  void commit(Durability durability);

 private:
  bool create();
  bool isOurs() const;

  const Place &to_;
  const std::string name_;
  UniqueFd file_;
  bool isCommitted_ = false;
  off_t size_ = 0;
  off_t begun_ = 0;  // what the disk has been told to write
};

// Text for such a file, gathered into larger writes.
class TextWriter {
 public:
  explicit TextWriter(TemporaryFile &file) : file_(file) {}

  void add(std::string_view text);
  // Writes what is left. The checksum of all that was added.
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
