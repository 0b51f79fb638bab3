#include "Database.h"

#include <sqlite3.h>

namespace acme {
namespace {

constexpr int patience = 5000;  // milliseconds, for a predecessor that is about to exit

}  // namespace

void Database::Closer::operator()(sqlite3* database) const { sqlite3_close_v2(database); }

Database::Database(const std::string& path) {
  sqlite3* opened = nullptr;
  const int code =
      sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  database_.reset(opened);
  if (code != SQLITE_OK) throw DatabaseError(path + ": " + sqlite3_errstr(code), code);
  sqlite3_busy_timeout(opened, patience);
}

void Database::execute(const char* statements) {
  if (sqlite3_exec(database_.get(), statements, nullptr, nullptr, nullptr) != SQLITE_OK) {
    throw error();
  }
}

bool Database::inTransaction() const { return sqlite3_get_autocommit(database_.get()) == 0; }

std::int64_t Database::lastInsertedRow() const {
  return sqlite3_last_insert_rowid(database_.get());
}

DatabaseError Database::error() const {
  return {sqlite3_errmsg(database_.get()), sqlite3_errcode(database_.get())};
}

void Statement::Finalizer::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

Statement::Statement(Database& database, const char* text) : database_(database) {
  sqlite3_stmt* prepared = nullptr;
  check(sqlite3_prepare_v3(database.database_.get(), text, -1, SQLITE_PREPARE_PERSISTENT, &prepared,
                           nullptr));
  statement_.reset(prepared);
}

void Statement::begin() {
  sqlite3_reset(statement_.get());
  sqlite3_clear_bindings(statement_.get());
}

void Statement::bindOne(int index, std::int64_t value) {
  check(sqlite3_bind_int64(statement_.get(), index, value));
}

void Statement::bindOne(int index, std::string_view value) {
  const char* bytes = value.empty() ? "" : value.data();  // a null pointer would mean NULL
  check(sqlite3_bind_text64(statement_.get(), index, bytes, value.size(), SQLITE_TRANSIENT,
                            SQLITE_UTF8));
}

bool Statement::next() {
  const int code = sqlite3_step(statement_.get());
  if (code == SQLITE_ROW) return true;
  sqlite3_reset(statement_.get());  // the database keeps the error
  if (code != SQLITE_DONE) throw database_.error();
  return false;
}

std::int64_t Statement::integer(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

std::string Statement::text(int column) const {
  const auto* bytes = sqlite3_column_text(statement_.get(), column);
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column));
  return bytes == nullptr ? std::string() : std::string(reinterpret_cast<const char*>(bytes), size);
}

void Statement::check(int code) const {
  if (code != SQLITE_OK) throw database_.error();
}

}  // namespace acme
