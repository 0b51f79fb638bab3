#include "State.h"

#include <sqlite3.h>

#include <cstdio>
#include <exception>

#include "Platform/Files.h"
#include "Platform/Log.h"

namespace acme {
namespace {

constexpr std::chrono::milliseconds commitDelay(500);

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

std::unique_ptr<Database> openFile(const std::string& path) {
  auto database = std::make_unique<Database>(path);
  database->execute(schema);
  return database;
}

}  // namespace

State::State(const std::string& directory)
    : database_(open(directory)),
      setCollects_(*database_,
                   "INSERT INTO host VALUES(?1, ?2) ON CONFLICT DO UPDATE SET collects = ?2"),
      collects_(*database_, "SELECT collects FROM host WHERE identifier = ?"),
      count_(*database_,
             "INSERT INTO counter VALUES(?, ?, ?, ?, 1) ON CONFLICT DO UPDATE SET count = count+1"),
      collect_(*database_,
               "INSERT INTO string VALUES(?, ?, ?, 1) ON CONFLICT DO UPDATE SET count = count+1"),
      counters_(*database_, "SELECT count(*), sum(count) FROM counter WHERE product = ?"),
      strings_(*database_, "SELECT count(*) FROM string WHERE product = ?"),
      addUpload_(*database_,
                 "INSERT INTO upload(kind, product, version, email, path, title, description) "
                 "VALUES(?, ?, ?, ?, ?, ?, ?)"),
      finishUpload_(*database_, "UPDATE upload SET size = ?2, sha256 = ?3 WHERE number = ?1"),
      failUpload_(*database_, "UPDATE upload SET error = ?2 WHERE number = ?1"),
      unfinishedUploads_(*database_,
                         "SELECT number, kind, product, version, email, path, title, description "
                         "FROM upload WHERE sha256 IS NULL AND error IS NULL ORDER BY number"),
      addMessage_(*database_, "INSERT INTO message(product, text) VALUES(?, ?)"),
      messages_(*database_, "SELECT text FROM message WHERE product = ? ORDER BY number"),
      forgetMessages_(*database_, "DELETE FROM message WHERE product = ?") {
  recordStart();
}

State::~State() { commit(); }

std::unique_ptr<Database> State::open(const std::string& directory) {
  qbdkr::createDirectory(directory);
  const std::string path = qbdkr::appendPathComponent(directory, "state.sqlite");
  try {
    return openFile(path);
  } catch (const DatabaseError& error) {
    if (error.code() != SQLITE_NOTADB && error.code() != SQLITE_CORRUPT) throw;
    qbdkr::log("%@ is damaged and put aside: %@", {path, error.what()});
  }
  if (std::rename(path.c_str(), (path + ".damaged").c_str()) != 0) {
    throw DatabaseError(path + " cannot be put aside", SQLITE_CANTOPEN);
  }
  // The journal of another file.
  for (const char* suffix : {"-wal", "-shm"}) std::remove((path + suffix).c_str());
  return openFile(path);
}

void State::recordStart() {
  Statement insert(*database_, "INSERT INTO start(time) VALUES(datetime('now'))");
  insert.bind().run();
  isFirstStart_ = database_->lastInsertedRow() == 1;
}

bool State::commit() {
  try {
    if (database_->inTransaction()) database_->execute("COMMIT");
  } catch (const DatabaseError& error) {
    qbdkr::log("what was collected cannot be stored: %@", {error.what()});
    return false;
  }
  if (timer_) timer_->invalidate();
  timer_.reset();
  return true;
}

// Runs a statement that changes something. The run loop may be too busy for its timers, so the time
// is looked at here as well.
void State::change(Statement& statement) {
  const auto now = std::chrono::steady_clock::now();
  if (!database_->inTransaction()) {
    database_->execute("BEGIN IMMEDIATE");
    oldestChange_ = now;
  }
  if (!timer_) {
    timer_ =
        qbdkr::RunLoop::main().scheduleTimer(commitDelay, [this](const auto&) { (void)commit(); });
  }
  statement.run();
  if (now - oldestChange_ >= commitDelay) (void)commit();
}

void State::setCollects(std::string_view host, bool collects) {
  change(setCollects_.bind(host, collects ? std::int64_t{1} : 0));
}

bool State::collects(std::string_view host) {
  bool collects = true;
  for (collects_.bind(host); collects_.next();) collects = collects_.integer(0) != 0;
  return collects;
}

void State::count(std::string_view productID, std::int64_t type, std::string_view target,
                  std::string_view key) {
  change(count_.bind(productID, type, target, key));
}

void State::collect(std::string_view productID, std::string_view target, std::string_view value) {
  change(collect_.bind(productID, target, value));
}

Collected State::collected(std::string_view productID) {
  Collected collected;
  for (counters_.bind(productID); counters_.next();) {
    collected.counters = counters_.integer(0);
    collected.counts = counters_.integer(1);
  }
  for (strings_.bind(productID); strings_.next();) collected.strings = strings_.integer(0);
  return collected;
}

std::int64_t State::addUpload(const Upload& upload) {
  change(addUpload_.bind(std::string_view(upload.kind), std::string_view(upload.productID),
                         std::string_view(upload.version), std::string_view(upload.email),
                         std::string_view(upload.path), std::string_view(upload.title),
                         std::string_view(upload.description)));
  return database_->lastInsertedRow();
}

void State::finishUpload(std::int64_t number, std::int64_t size, std::string_view sha256) {
  change(finishUpload_.bind(number, size, sha256));
}

void State::failUpload(std::int64_t number, std::string_view error) {
  change(failUpload_.bind(number, error));
}

std::vector<Upload> State::unfinishedUploads() {
  std::vector<Upload> uploads;
  for (unfinishedUploads_.bind(); unfinishedUploads_.next();) {
    const Statement& row = unfinishedUploads_;
    uploads.push_back({row.integer(0), row.text(1), row.text(2), row.text(3), row.text(4),
                       row.text(5), row.text(6), row.text(7)});
  }
  return uploads;
}

void State::addMessage(std::string_view productID, std::string_view text) {
  change(addMessage_.bind(productID, text));
}

std::vector<std::string> State::takeMessages(std::string_view productID) {
  std::vector<std::string> messages;
  for (messages_.bind(productID); messages_.next();) messages.push_back(messages_.text(0));
  if (!messages.empty()) change(forgetMessages_.bind(productID));
  return messages;
}

}  // namespace acme
