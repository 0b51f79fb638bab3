#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace acme {

class DatabaseError : public std::runtime_error {
 public:
  DatabaseError(const std::string& what, int code) : std::runtime_error(what), code_(code) {}
  // Returns SQLite's result code.
  [[nodiscard]] int code() const { return code_; }

 private:
  int code_;
};

// An SQLite database. One thread at a time.
class Database {
 public:
  // Opens or creates a file. Throws DatabaseError, as the calls below may.
  explicit Database(const std::string& path);

  // Runs statements that have no parameters and whose rows do not matter.
  void execute(const char* statements);
  [[nodiscard]] bool inTransaction() const;
  [[nodiscard]] std::int64_t lastInsertedRow() const;

 private:
  friend class Statement;
  struct Closer {
    void operator()(sqlite3* database) const;
  };
  [[nodiscard]] DatabaseError error() const;
  std::unique_ptr<sqlite3, Closer> database_;
};

// A statement of a database that outlives it, prepared once and run as often as needed:
//   for (statement.bind(...); statement.next();) statement.text(0);
class Statement {
 public:
  Statement(Database& database, const char* text);

  // Restarts the statement, and sets all its parameters.
  template <class... Values>
  Statement& bind(const Values&... values) {
    begin();
    int index = 0;
    (bindOne(++index, values), ...);
    return *this;
  }
  // Goes on to the next row; false after the last one.
  bool next();
  // Runs to the end.
  void run() {
    while (next()) {
    }
  }

  [[nodiscard]] std::int64_t integer(int column) const;
  [[nodiscard]] std::string text(int column) const;

 private:
  struct Finalizer {
    void operator()(sqlite3_stmt* statement) const;
  };
  void begin();
  void bindOne(int index, std::int64_t value);
  void bindOne(int index, std::string_view value);
  void check(int code) const;

  Database& database_;
  std::unique_ptr<sqlite3_stmt, Finalizer> statement_;
};

}  // namespace acme
