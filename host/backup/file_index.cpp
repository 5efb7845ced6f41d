#include "backup/file_index.h"

#include <sqlite3.h>

#include "files/file_error.h"

namespace arvl_host {

namespace {

// The folder comes first in the key, so that the entries of one stand together.
constexpr const char *kSchema =
    "PRAGMA journal_mode = OFF;"
    "PRAGMA synchronous = OFF;"
    "PRAGMA cache_size = -8192;"  // KiB
    "CREATE TABLE checksums (inode INTEGER PRIMARY KEY, device, changed, changed_nsec, sha256);"
    "CREATE TABLE files (folder BLOB, name BLOB, type, size, mode, mtime, mtime_nsec, sha256,"
    "                    target BLOB, PRIMARY KEY (folder, name)) WITHOUT ROWID;"
    "BEGIN";

void bind(sqlite3_stmt *statement, int column, std::int64_t value) {
  sqlite3_bind_int64(statement, column, value);
}

void bindText(sqlite3_stmt *statement, int column, const std::string &text) {
  sqlite3_bind_text(statement, column, text.data(), static_cast<int>(text.size()),
                    SQLITE_TRANSIENT);
}

// Paths may hold any bytes.
void bindBytes(sqlite3_stmt *statement, int column, const std::string &bytes) {
  sqlite3_bind_blob(statement, column, bytes.data(), static_cast<int>(bytes.size()),
                    SQLITE_TRANSIENT);
}

std::string bytesOf(sqlite3_stmt *statement, int column) {
  const void *bytes = sqlite3_column_blob(statement, column);
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
  return bytes != nullptr ? std::string(static_cast<const char *>(bytes), size) : "";
}

void bindPath(sqlite3_stmt *statement, const std::string &path) {
  const std::size_t slash = path.rfind('/');
  bindBytes(statement, 1, path.substr(0, slash));
  bindBytes(statement, 2, path.substr(slash + 1));
}

FileRecord recordOf(sqlite3_stmt *row) {
  FileRecord record;
  record.path = bytesOf(row, 0) + "/" + bytesOf(row, 1);
  record.type = static_cast<FileType>(sqlite3_column_int(row, 2));
  record.size = sqlite3_column_int64(row, 3);
  record.mode = static_cast<unsigned>(sqlite3_column_int(row, 4));
  record.mtime = sqlite3_column_int64(row, 5);
  record.mtimeNsec = sqlite3_column_int64(row, 6);
  record.sha256 = bytesOf(row, 7);
  record.target = bytesOf(row, 8);
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
  addChecksum_ = prepare("INSERT OR REPLACE INTO checksums VALUES (?, ?, ?, ?, ?)");
  findChecksum_ = prepare(
      "SELECT sha256 FROM checksums "
      "WHERE inode = ? AND device = ? AND changed = ? AND changed_nsec = ?");
  findChanged_ = prepare(
      "SELECT 1 FROM checksums WHERE inode = ? AND device = ? "
      "AND NOT (changed = ? AND changed_nsec = ?) AND sha256 = ''");
  add_ = prepare("INSERT OR REPLACE INTO files VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
  find_ = prepare("SELECT * FROM files WHERE folder = ? AND name = ?");
  count_ = prepare("SELECT count(*) FROM files WHERE folder = ?");
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

// True if there is a row.
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

namespace {

void bindStatus(sqlite3_stmt *statement, const struct stat &status) {
  bind(statement, 1, static_cast<std::int64_t>(status.st_ino));
  bind(statement, 2, static_cast<std::int64_t>(status.st_dev));
  bind(statement, 3, status.st_ctim.tv_sec);
  bind(statement, 4, status.st_ctim.tv_nsec);
}

}  // namespace

void FileIndex::addChecksum(const struct stat &status, const std::string &sha256) {
  bindStatus(addChecksum_.get(), status);
  bindText(addChecksum_.get(), 5, sha256);
  run(addChecksum_.get());
}

std::string FileIndex::checksumOf(const struct stat &status) {
  bindStatus(findChecksum_.get(), status);
  const std::string sha256 =
      step(findChecksum_.get()) ? bytesOf(findChecksum_.get(), 0) : std::string();
  sqlite3_reset(findChecksum_.get());
  return sha256;
}

// Replaces what is known of a copy that had the same inode, and maybe the same time of change: file systems count
// it in ticks of milliseconds.
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
  bind(add_.get(), 3, static_cast<int>(record.type));
  bind(add_.get(), 4, record.size);
  bind(add_.get(), 5, record.mode);
  bind(add_.get(), 6, record.mtime);
  bind(add_.get(), 7, record.mtimeNsec);
  bindText(add_.get(), 8, record.sha256);
  bindBytes(add_.get(), 9, record.target);
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
  bindBytes(count_.get(), 1, folder);
  step(count_.get());
  const auto count = static_cast<std::uint64_t>(sqlite3_column_int64(count_.get(), 0));
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
