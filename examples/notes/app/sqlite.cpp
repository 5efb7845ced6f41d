#include "app/sqlite.h"

namespace notes {
namespace {

constexpr int kBusyTimeoutMs = 10'000;
constexpr int kPagesAtATime = 256;  // 1 MiB, with pages of 4 KiB

[[noreturn]] void fail(sqlite3 *handle) {
  const char *file = sqlite3_db_filename(handle, "main");
  const std::string where = file != nullptr && *file != '\0' ? std::string(file) + ": " : "";
  throw SqliteError(where + sqlite3_errmsg(handle));
}

void check(sqlite3 *handle, int code) {
  if (code != SQLITE_OK) {
    fail(handle);
  }
}

}  // namespace

Database::Database(const std::filesystem::path &file, Mode mode) {
  const int flags = SQLITE_OPEN_READWRITE | (mode == Mode::kCreate ? SQLITE_OPEN_CREATE : 0);
  sqlite3 *handle = nullptr;
  const int code = sqlite3_open_v2(file.c_str(), &handle, flags, nullptr);
  handle_.reset(handle);
  if (code != SQLITE_OK) {
    throw SqliteError(file.string() + ": " + sqlite3_errstr(code));
  }
  sqlite3_busy_timeout(handle, kBusyTimeoutMs);
  execute("PRAGMA foreign_keys = ON");
}

void Database::execute(const std::string &sql) {
  check(handle(), sqlite3_exec(handle(), sql.c_str(), nullptr, nullptr, nullptr));
}

std::int64_t Database::integer(const std::string &sql) {
  Statement query(*this, sql);
  return query.step() ? query.integer(0) : 0;
}

void Database::copyTo(const std::filesystem::path &file,
                      const std::function<void(int, int)> &progress) {
  // The read transaction holds one state of the database. Without it, each write of another process
  // would make the copy start again.
  Transaction reading(*this, Transaction::Kind::kRead);
  integer("SELECT count(*) FROM sqlite_schema");

  Database copy(file, Mode::kCreate);
  const std::unique_ptr<sqlite3_backup, int (*)(sqlite3_backup *)> backup(
      sqlite3_backup_init(copy.handle(), "main", handle(), "main"), sqlite3_backup_finish);
  if (!backup) {
    fail(copy.handle());
  }
  int code = SQLITE_OK;
  while (code == SQLITE_OK) {
    code = sqlite3_backup_step(backup.get(), kPagesAtATime);
    const int total = sqlite3_backup_pagecount(backup.get());
    progress(total - sqlite3_backup_remaining(backup.get()), total);
  }
  if (code != SQLITE_DONE) {
    throw SqliteError(file.string() + ": " + sqlite3_errstr(code));
  }
}

Statement::Statement(Database &database, const std::string &sql) {
  sqlite3_stmt *handle = nullptr;
  notes::check(database.handle(),
               sqlite3_prepare_v2(database.handle(), sql.c_str(), -1, &handle, nullptr));
  handle_.reset(handle);
}

bool Statement::step() {
  const int code = sqlite3_step(handle_.get());
  if (code != SQLITE_ROW && code != SQLITE_DONE) {
    fail(sqlite3_db_handle(handle_.get()));
  }
  return code == SQLITE_ROW;
}

void Statement::run() {
  step();
  sqlite3_reset(handle_.get());
}

std::string Statement::text(int column) const {
  const void *bytes = sqlite3_column_text(handle_.get(), column);
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(handle_.get(), column));
  return bytes != nullptr ? std::string(static_cast<const char *>(bytes), size) : std::string();
}

void Statement::bindOne(int position, std::int64_t value) {
  check(sqlite3_bind_int64(handle_.get(), position, value));
}

void Statement::bindOne(int position, const std::string &value) {
  check(sqlite3_bind_text64(handle_.get(), position, value.data(), value.size(), SQLITE_TRANSIENT,
                            SQLITE_UTF8));
}

void Statement::check(int code) const {
  notes::check(sqlite3_db_handle(handle_.get()), code);
}

Transaction::Transaction(Database &database, Kind kind) : database_(database) {
  // A write transaction waits for the lock here. A read transaction that later becomes a write
  // could not wait, and would fail.
  database_.execute(kind == Kind::kWrite ? "BEGIN IMMEDIATE" : "BEGIN");
}

Transaction::~Transaction() {
  if (open_) {
    sqlite3_exec(database_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
  }
}

void Transaction::commit() {
  database_.execute("COMMIT");
  open_ = false;
}

}  // namespace notes
