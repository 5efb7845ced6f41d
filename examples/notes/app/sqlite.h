// Classes that own SQLite's handles. Every failure is a SqliteError with SQLite's message.
#ifndef NOTES_APP_SQLITE_H_
#define NOTES_APP_SQLITE_H_

#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

namespace notes {

class SqliteError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A connection that waits for other processes instead of failing, and enforces foreign keys.
class Database {
 public:
  enum class Mode { kExisting, kCreate };
  explicit Database(const std::filesystem::path &file, Mode mode = Mode::kExisting);

  // Runs any number of statements and ignores their rows.
  void execute(const std::string &sql);

  // Returns the first column of the first row, or 0 without a row.
  std::int64_t integer(const std::string &sql);

  std::int64_t lastInsertId() const { return sqlite3_last_insert_rowid(handle()); }

  // Copies the current state of the database to a new file, while other processes continue to
  // write. Calls the function with the pages done and in all; an exception from it propagates.
  void copyTo(const std::filesystem::path &file, const std::function<void(int, int)> &progress);

  sqlite3 *handle() const { return handle_.get(); }

 private:
  struct Closer {
    void operator()(sqlite3 *handle) const { sqlite3_close(handle); }
  };
  std::unique_ptr<sqlite3, Closer> handle_;
};

// Owns a prepared statement, which can be used repeatedly: bind, then step or run.
class Statement {
 public:
  Statement(Database &database, const std::string &sql);

  // Resets the statement and binds these values to its parameters, in order.
  template <typename... Values>
  Statement &bind(const Values &...values) {
    sqlite3_reset(handle_.get());
    int position = 0;
    (bindOne(++position, values), ...);
    return *this;
  }

  // Advances to the next row. Returns false after the last one.
  bool step();
  // Executes a statement that gives no rows.
  void run();

  std::int64_t integer(int column) const { return sqlite3_column_int64(handle_.get(), column); }
  std::string text(int column) const;

 private:
  void bindOne(int position, std::int64_t value);
  void bindOne(int position, const std::string &value);
  void check(int code) const;

  struct Finalizer {
    void operator()(sqlite3_stmt *handle) const { sqlite3_finalize(handle); }
  };
  std::unique_ptr<sqlite3_stmt, Finalizer> handle_;
};

// A transaction. The destructor rolls it back unless commit() was called.
class Transaction {
 public:
  enum class Kind { kRead, kWrite };
  Transaction(Database &database, Kind kind);
  ~Transaction();
  Transaction(const Transaction &) = delete;
  Transaction &operator=(const Transaction &) = delete;

  void commit();

 private:
  Database &database_;
  bool open_ = true;
};

}  // namespace notes

#endif  // NOTES_APP_SQLITE_H_
