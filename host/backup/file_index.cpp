#include "backup/file_index.h"

#include <sqlite3.h>

#include <cstring>
#include <stdexcept>

#include "backup/entry_path.h"
#include "files/file_error.h"

namespace arvl_host {

namespace {

// The directory comes first in the key, so that its entries are stored together.
constexpr const char *kSchema =
    "PRAGMA journal_mode = OFF;"
    "PRAGMA synchronous = OFF;"
    "PRAGMA cache_size = -8192;"  // KiB
    "CREATE TABLE checksums (inode INTEGER PRIMARY KEY, device, changed, changed_nsec, sha256);"
    "CREATE TABLE files (folder BLOB, name BLOB, type, size, mode, mtime, mtime_nsec, sha256,"
    "                    target BLOB, PRIMARY KEY (folder, name)) WITHOUT ROWID;"
    "BEGIN";

int parameterOf(sqlite3_stmt *statement, const char *name) {
  const int parameter = sqlite3_bind_parameter_index(statement, name);
  if (parameter == 0) {
    throw std::logic_error(std::string("no parameter ") + name);
  }
  return parameter;
}

int columnOf(sqlite3_stmt *row, const char *name) {
  for (int column = 0; column < sqlite3_column_count(row); ++column) {
    if (std::strcmp(sqlite3_column_name(row, column), name) == 0) {
      return column;
    }
  }
  throw std::logic_error(std::string("no column ") + name);
}

void bind(sqlite3_stmt *statement, const char *name, std::int64_t value) {
  sqlite3_bind_int64(statement, parameterOf(statement, name), value);
}

void bindText(sqlite3_stmt *statement, const char *name, const std::string &text) {
  sqlite3_bind_text(statement, parameterOf(statement, name), text.data(),
                    static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

// Paths may hold any bytes.
void bindBytes(sqlite3_stmt *statement, const char *name, const std::string &bytes) {
  sqlite3_bind_blob(statement, parameterOf(statement, name), bytes.data(),
                    static_cast<int>(bytes.size()), SQLITE_TRANSIENT);
}

void bindPath(sqlite3_stmt *statement, const std::string &path) {
  const auto [folder, name] = splitEntryPath(path);
  bindBytes(statement, ":folder", folder);
  bindBytes(statement, ":name", name);
}

void bindStatus(sqlite3_stmt *statement, const struct stat &status) {
  bind(statement, ":inode", static_cast<std::int64_t>(status.st_ino));
  bind(statement, ":device", static_cast<std::int64_t>(status.st_dev));
  bind(statement, ":changed", status.st_ctim.tv_sec);
  bind(statement, ":changed_nsec", status.st_ctim.tv_nsec);
}

std::int64_t numberOf(sqlite3_stmt *row, const char *name) {
  return sqlite3_column_int64(row, columnOf(row, name));
}

std::string bytesOf(sqlite3_stmt *row, const char *name) {
  const int column = columnOf(row, name);
  const void *bytes = sqlite3_column_blob(row, column);
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(row, column));
  return bytes != nullptr ? std::string(static_cast<const char *>(bytes), size) : "";
}

FileRecord recordOf(sqlite3_stmt *row) {
  FileRecord record;
  record.path = bytesOf(row, "folder") + "/" + bytesOf(row, "name");
  record.type = static_cast<FileType>(numberOf(row, "type"));
  record.size = numberOf(row, "size");
  record.mode = static_cast<unsigned>(numberOf(row, "mode"));
  record.mtime = numberOf(row, "mtime");
  record.mtimeNsec = numberOf(row, "mtime_nsec");
  record.sha256 = bytesOf(row, "sha256");
  record.target = bytesOf(row, "target");
  return record;
}

}  // namespace

void FileIndex::Closer::operator()(sqlite3 *database) const {
  sqlite3_close(database);
}

void FileIndex::Closer::operator()(sqlite3_stmt *statement) const {
  sqlite3_finalize(statement);
}

FileIndex::FileIndex() {
  sqlite3 *database = nullptr;
  const int status = sqlite3_open("", &database);  // no name: a temporary file
  database_.reset(database);
  if (status != SQLITE_OK) {
    fail();
  }
  execute(kSchema);
  addChecksum_ = prepare(
      "INSERT OR REPLACE INTO checksums (inode, device, changed, changed_nsec, sha256) "
      "VALUES (:inode, :device, :changed, :changed_nsec, :sha256)");
  findChecksum_ = prepare(
      "SELECT sha256 FROM checksums WHERE inode = :inode AND device = :device "
      "AND changed = :changed AND changed_nsec = :changed_nsec");
  findChanged_ = prepare(
      "SELECT inode FROM checksums WHERE inode = :inode AND device = :device "
      "AND NOT (changed = :changed AND changed_nsec = :changed_nsec) AND sha256 = ''");
  add_ = prepare(
      "INSERT OR REPLACE INTO files "
      "(folder, name, type, size, mode, mtime, mtime_nsec, sha256, target) VALUES "
      "(:folder, :name, :type, :size, :mode, :mtime, :mtime_nsec, :sha256, :target)");
  find_ = prepare("SELECT * FROM files WHERE folder = :folder AND name = :name");
  count_ = prepare("SELECT count(*) AS entries FROM files WHERE folder = :folder");
}

FileIndex::~FileIndex() = default;

void FileIndex::fail() {
  throw StoreError(std::string("cannot keep the list of files in a temporary file: ") +
                   sqlite3_errmsg(database_.get()));
}

void FileIndex::execute(const char *sql) {
  if (sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
    fail();
  }
}

FileIndex::Statement FileIndex::prepare(const char *sql) {
  sqlite3_stmt *statement = nullptr;
  if (sqlite3_prepare_v2(database_.get(), sql, -1, &statement, nullptr) != SQLITE_OK) {
    fail();
  }
  return Statement(statement);
}

// Returns whether there is a row.
bool FileIndex::step(sqlite3_stmt *statement) {
  const int status = sqlite3_step(statement);
  if (status != SQLITE_ROW && status != SQLITE_DONE) {
    fail();
  }
  return status == SQLITE_ROW;
}

void FileIndex::run(sqlite3_stmt *statement) {
  step(statement);
  sqlite3_reset(statement);
}

void FileIndex::addChecksum(const struct stat &status, const std::string &sha256) {
  bindStatus(addChecksum_.get(), status);
  bindText(addChecksum_.get(), ":sha256", sha256);
  run(addChecksum_.get());
}

std::string FileIndex::checksumOf(const struct stat &status) {
  bindStatus(findChecksum_.get(), status);
  const std::string sha256 =
      step(findChecksum_.get()) ? bytesOf(findChecksum_.get(), "sha256") : std::string();
  sqlite3_reset(findChecksum_.get());
  return sha256;
}

// Replaces the checksum of a copy that had the same inode. The copy may even have the same time of change,
// because file systems count it in ticks of milliseconds.
void FileIndex::addMoved(const struct stat &status) {
  addChecksum(status, "");
  hasMoved_ = true;
}

bool FileIndex::hasChangedSinceMove(const struct stat &status) {
  bindStatus(findChanged_.get(), status);
  const bool hasChanged = step(findChanged_.get());
  sqlite3_reset(findChanged_.get());
  return hasChanged;
}

void FileIndex::add(const FileRecord &record) {
  bindPath(add_.get(), record.path);
  bind(add_.get(), ":type", static_cast<int>(record.type));
  bind(add_.get(), ":size", record.size);
  bind(add_.get(), ":mode", record.mode);
  bind(add_.get(), ":mtime", record.mtime);
  bind(add_.get(), ":mtime_nsec", record.mtimeNsec);
  bindText(add_.get(), ":sha256", record.sha256);
  bindBytes(add_.get(), ":target", record.target);
  run(add_.get());
}

std::optional<FileRecord> FileIndex::find(const std::string &path) {
  bindPath(find_.get(), path);
  std::optional<FileRecord> record;
  if (step(find_.get())) {
    record = recordOf(find_.get());
  }
  sqlite3_reset(find_.get());
  return record;
}

std::uint64_t FileIndex::countIn(const std::string &folder) {
  bindBytes(count_.get(), ":folder", folder);
  step(count_.get());
  const auto count = static_cast<std::uint64_t>(numberOf(count_.get(), "entries"));
  sqlite3_reset(count_.get());
  return count;
}

void FileIndex::forEach(const std::function<void(const FileRecord &)> &use) {
  const Statement all = prepare("SELECT * FROM files ORDER BY folder, name");
  while (step(all.get())) {
    use(recordOf(all.get()));
  }
}

}  // namespace arvl_host
