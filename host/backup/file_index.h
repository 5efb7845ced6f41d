// The entries of a backup, looked up by their path, in memory that does not grow with their number.
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

// A private table in a temporary file without a name, which goes with the process. Throws StoreError,
// when the temporary file cannot grow for one. One thread at a time.
class FileIndex {
 public:
  FileIndex();
  ~FileIndex();
  FileIndex(const FileIndex &) = delete;
  FileIndex &operator=(const FileIndex &) = delete;

  // What a file holds, known from its status for as long as nothing changes it.
  void addChecksum(const struct stat &status, const std::string &sha256);
  // Empty if it is not known.
  std::string checksumOf(const struct stat &status);
  // A file that was moved, of which no checksum is known.
  void addMoved(const struct stat &status);
  bool hasMoved() const { return hasMoved_; }
  // Whether the file was moved, and is not as it was then.
  bool hasChangedSinceMove(const struct stat &status);

  // Replaces the record of the same path.
  void add(const FileRecord &record);
  std::optional<FileRecord> find(const std::string &path);
  // How many entries a folder has. "" is the store itself.
  std::uint64_t countIn(const std::string &folder);
  // By the folder, then by the name; in the order of the bytes.
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
