// Finds the entries of a backup by path. The memory used does not grow with their number.
#ifndef ARVL_HOST_BACKUP_FILE_INDEX_H_
#define ARVL_HOST_BACKUP_FILE_INDEX_H_

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "backup/file_record.h"

struct sqlite3;
struct sqlite3_stmt;

namespace arvl_host {

// Owns a private table in a temporary file without a name, which disappears with the process. Throws
// StoreError, for example if the temporary file cannot grow. One thread at a time.
class FileIndex {
 public:
  FileIndex();
  ~FileIndex();
  FileIndex(const FileIndex &) = delete;
  FileIndex &operator=(const FileIndex &) = delete;

  // Keeps the checksum of a file for as long as its status does not change.
  void addChecksum(const struct stat &status, const std::string &sha256);
  // Returns an empty string if the checksum is not known.
  std::string checksumOf(const struct stat &status);
  // Keeps the status of a file that was moved, without a checksum.
  void addMoved(const struct stat &status);
  bool hasMoved() const { return hasMoved_; }
  // Returns whether the file was moved and its status has changed since then.
  bool hasChangedSinceMove(const struct stat &status);

  // Adds a record, replacing the one with the same path.
  void add(const FileRecord &record);
  std::optional<FileRecord> find(const std::string &path);
  // Returns the number of entries of a directory. "" is the store itself.
  std::uint64_t countIn(const std::string &folder);
  // Calls `use` for each record, sorted by the bytes of the directory and then of the name.
  void forEach(const std::function<void(const FileRecord &)> &use);

 private:
  struct Closer {
    void operator()(sqlite3 *database) const;
    void operator()(sqlite3_stmt *statement) const;
  };
  using Statement = std::unique_ptr<sqlite3_stmt, Closer>;

  void execute(const char *sql);
  Statement prepare(const char *sql);
  bool step(sqlite3_stmt *statement);
  void run(sqlite3_stmt *statement);
  [[noreturn]] void fail();

  std::unique_ptr<sqlite3, Closer> database_;
  bool hasMoved_ = false;
  Statement addChecksum_, findChecksum_, findChanged_, add_, find_, count_;
};

}  // namespace arvl_host

#endif  // ARVL_HOST_BACKUP_FILE_INDEX_H_
