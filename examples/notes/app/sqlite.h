// Owners of SQLite's handles. Every failure is a SqliteError with SQLite's own words.
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

  // Runs any number of statements; rows are dropped.
  void execute(const std::string &sql);

  // The first column of the first row; 0 without a row.
  std::int64_t integer(const std::string &sql);

  std::int64_t lastInsertId() const { return sqlite3_last_insert_rowid(handle()); }

  // Copies the database as it is at this moment into a new file, while other processes go on
  // writing. The function is called with pages done and pages in all; what it throws ends the copy.
  void copyTo(const std::filesystem::path &file, const std::function<void(int, int)> &progress);

  sqlite3 *handle() const { return handle_.get(); }

 private:
  struct Closer {
    void operator()(sqlite3 *handle) const { sqlite3_close(handle); }
  };
  std::unique_ptr<sqlite3, Closer> handle_;
};

// One prepared statement: bind and step through its rows, or run it; as often as needed.
class Statement {
 public:
  Statement(Database &database, const std::string &sql);

  // Starts over with these values for the parameters, in order.
  template <typename... Values>
  Statement &bind(const Values &...values) {
    sqlite3_reset(handle_.get());
    int position = 0;
    (bindOne(++position, values), ...);
    return *this;
  }

  // Advances to the next row; false after the last one.
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

// Everything between construction and commit() happens, or nothing does.
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
