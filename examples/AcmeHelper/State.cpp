#include "State.h"

#include <sqlite3.h>

#include <cstdio>
#include <filesystem>
#include <system_error>

#include <ClientComm/Log.h>

#include "Database.h"

namespace acme {
namespace {

constexpr std::chrono::milliseconds commitDelay(400);

constexpr const char* schema = R"sql(
  PRAGMA journal_mode = WAL;
  PRAGMA synchronous = FULL;
  CREATE TABLE IF NOT EXISTS start(number INTEGER PRIMARY KEY, time TEXT NOT NULL);
  CREATE TABLE IF NOT EXISTS host(
    identifier TEXT PRIMARY KEY, collects INTEGER NOT NULL) WITHOUT ROWID;
  CREATE TABLE IF NOT EXISTS counter(
    product TEXT, type INTEGER, target TEXT, key TEXT, count INTEGER NOT NULL,
    PRIMARY KEY(product, type, target, key)) WITHOUT ROWID;
  CREATE TABLE IF NOT EXISTS string(
    product TEXT, target TEXT, value TEXT, count INTEGER NOT NULL,
    PRIMARY KEY(product, target, value)) WITHOUT ROWID;
  CREATE TABLE IF NOT EXISTS upload(
    number INTEGER PRIMARY KEY, kind TEXT, product TEXT, version TEXT, email TEXT, path TEXT,
    title TEXT, description TEXT, size INTEGER, sha256 TEXT, error TEXT);
  CREATE TABLE IF NOT EXISTS message(number INTEGER PRIMARY KEY, product TEXT, text TEXT);
)sql";

// Opens a database as this program makes it. Throws if it is damaged or has another schema.
struct CheckedDatabase : Database {
  explicit CheckedDatabase(const std::string& path) : Database(path) {
    execute(schema);
    Statement check(*this, "PRAGMA quick_check(1)");
    std::string answer;
    for (check.bind(); check.next();) answer = check.text(0);
    if (answer != "ok") throw DatabaseError(answer, SQLITE_CORRUPT);
  }
};

bool isDamage(const DatabaseError& error) {
  const int code = error.code();
  return code == SQLITE_NOTADB || code == SQLITE_CORRUPT || code == SQLITE_ERROR;
}

// Records this start, and returns the count of starts, this one included.
std::int64_t recordStart(Database& database) {
  Statement start(database, "INSERT INTO start(time) VALUES(datetime('now'))");
  start.bind().run();
  return database.lastInsertedRow();
}

// Renames the database to a free name, with its journal, which may hold the last changes.
void putAside(const std::string& path) {
  std::string aside = path + ".damaged";
  for (int number = 2; std::filesystem::exists(aside); ++number) {
    aside = path + ".damaged-" + std::to_string(number);
  }
  for (const char* part : {"", "-wal", "-shm"}) {
    std::rename((path + part).c_str(), (aside + part).c_str());
  }
}

}  // namespace

struct State::Tables {
  explicit Tables(const std::string& path) : database(path) {}

  CheckedDatabase database;
  bool isFirstStart = recordStart(database) == 1;
  Statement setCollects{database,
                        "INSERT INTO host VALUES(?1, ?2) ON CONFLICT DO UPDATE SET collects = ?2"};
  Statement collects{database, "SELECT collects FROM host WHERE identifier = ?"};
  Statement count{
      database,
      "INSERT INTO counter VALUES(?, ?, ?, ?, 1) ON CONFLICT DO UPDATE SET count = count+1"};
  Statement collect{
      database, "INSERT INTO string VALUES(?, ?, ?, 1) ON CONFLICT DO UPDATE SET count = count+1"};
  Statement counters{database, "SELECT count(*), sum(count) FROM counter WHERE product = ?"};
  Statement strings{database, "SELECT count(*) FROM string WHERE product = ?"};
  Statement addUpload{database,
                      "INSERT INTO upload(kind, product, version, email, path, title, description) "
                      "VALUES(?, ?, ?, ?, ?, ?, ?)"};
  Statement finishUpload{database, "UPDATE upload SET size = ?2, sha256 = ?3 WHERE number = ?1"};
  Statement failUpload{database, "UPDATE upload SET error = ?2 WHERE number = ?1"};
  Statement unfinishedUploads{
      database,
      "SELECT number, kind, product, version, email, path, title, description "
      "FROM upload WHERE sha256 IS NULL AND error IS NULL ORDER BY number"};
  Statement addMessage{database, "INSERT INTO message(product, text) VALUES(?, ?)"};
  Statement messages{database, "SELECT text FROM message WHERE product = ? ORDER BY number"};
  Statement forgetMessages{database, "DELETE FROM message WHERE product = ?"};
};

State::State(const std::string& directory) : tables_(open(directory)) {}

State::~State() { commit(); }

std::unique_ptr<State::Tables> State::open(const std::string& directory) {
  std::error_code ignored;  // without the directory the database cannot be opened
  std::filesystem::create_directories(directory, ignored);
  const std::string path = std::filesystem::path(directory) / "state.sqlite";
  try {
    return std::make_unique<Tables>(path);
  } catch (const DatabaseError& error) {
    if (!isDamage(error)) throw;
    qbdkr::log("%@ is damaged and put aside: %@", {path, error.what()});
  }
  putAside(path);
  return std::make_unique<Tables>(path);
}

bool State::isFirstStart() const { return tables_->isFirstStart; }

bool State::commit() {
  if (timer_) timer_->invalidate();
  timer_.reset();
  if (failed_) return false;
  try {
    if (tables_->database.inTransaction()) tables_->database.execute("COMMIT");
    return true;
  } catch (const DatabaseError& error) {
    fail(error.what());
    return false;
  }
}

// Runs a statement that changes the state. The run loop may be too busy for its timers, so the time
// is checked here as well.
void State::change(Statement& statement) {
  if (failed_) throw DatabaseError("nothing is stored any more", SQLITE_IOERR);
  const auto now = std::chrono::steady_clock::now();
  try {
    if (!tables_->database.inTransaction()) {
      tables_->database.execute("BEGIN IMMEDIATE");
      oldestChange_ = now;
    }
    statement.run();
  } catch (const DatabaseError& error) {
    fail(error.what());
    throw;
  }
  if (!timer_) {
    timer_ =
        qbdkr::RunLoop::main().scheduleTimer(commitDelay, [this](const auto&) { (void)commit(); });
  }
  if (now - oldestChange_ >= commitDelay) (void)commit();
}

void State::fail(const char* reason) {
  qbdkr::log("the state cannot be stored, and this helper agent ends: %@", {reason});
  failed_ = true;
  qbdkr::RunLoop::main().stop();
}

void State::setCollects(std::string_view host, bool collects) {
  change(tables_->setCollects.bind(host, collects ? std::int64_t{1} : 0));
}

bool State::collects(std::string_view host) {
  bool collects = true;
  for (tables_->collects.bind(host); tables_->collects.next();)
    collects = tables_->collects.integer(0) != 0;
  return collects;
}

void State::count(std::string_view productID, std::int64_t type, std::string_view target,
                  std::string_view key) {
  change(tables_->count.bind(productID, type, target, key));
}

void State::collect(std::string_view productID, std::string_view target, std::string_view value) {
  change(tables_->collect.bind(productID, target, value));
}

Collected State::collected(std::string_view productID) {
  Collected collected;
  for (tables_->counters.bind(productID); tables_->counters.next();) {
    collected.counters = tables_->counters.integer(0);
    collected.counts = tables_->counters.integer(1);
  }
  for (tables_->strings.bind(productID); tables_->strings.next();)
    collected.strings = tables_->strings.integer(0);
  return collected;
}

std::int64_t State::addUpload(const Upload& upload) {
  change(tables_->addUpload.bind(std::string_view(upload.kind), std::string_view(upload.productID),
                                 std::string_view(upload.version), std::string_view(upload.email),
                                 std::string_view(upload.path), std::string_view(upload.title),
                                 std::string_view(upload.description)));
  return tables_->database.lastInsertedRow();
}

void State::finishUpload(std::int64_t number, std::int64_t size, std::string_view sha256) {
  change(tables_->finishUpload.bind(number, size, sha256));
}

void State::failUpload(std::int64_t number, std::string_view error) {
  change(tables_->failUpload.bind(number, error));
}

std::vector<Upload> State::unfinishedUploads() {
  std::vector<Upload> uploads;
  for (tables_->unfinishedUploads.bind(); tables_->unfinishedUploads.next();) {
    const Statement& row = tables_->unfinishedUploads;
    uploads.push_back({row.integer(0), row.text(1), row.text(2), row.text(3), row.text(4),
                       row.text(5), row.text(6), row.text(7)});
  }
  return uploads;
}

void State::addMessage(std::string_view productID, std::string_view text) {
  change(tables_->addMessage.bind(productID, text));
}

std::vector<std::string> State::takeMessages(std::string_view productID) {
  std::vector<std::string> messages;
  for (tables_->messages.bind(productID); tables_->messages.next();)
    messages.push_back(tables_->messages.text(0));
  if (messages.empty()) return messages;
  change(tables_->forgetMessages.bind(productID));
  return commit() ? messages : std::vector<std::string>();
}

}  // namespace acme
