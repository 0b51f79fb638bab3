#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Database.h"
#include "Platform/RunLoop.h"

namespace acme {

// A file that a host handed over, and what is known of it.
struct Upload {
  std::int64_t number = 0;
  std::string kind;  // "log", "user file", "product file" or "attachment"
  std::string productID;
  std::string version;
  std::string email;
  std::string path;
  std::string title;
  std::string description;
};

// The usage data that was collected for a product.
struct Collected {
  std::int64_t counters = 0;
  std::int64_t counts = 0;  // of all counters
  std::int64_t strings = 0;
};

// What this helper agent must not forget, in an SQLite database.
//
// Changes are gathered, and made durable together: by commit(), by the run loop half a second after
// the first of them at the latest, and by the destructor. What a kill takes away is therefore the
// last half second at most, always as a whole: of two changes, never the second one alone.
//
// Main thread only. Everything may throw DatabaseError unless it is said that it does not.
class State {
 public:
  // Opens the database in a directory, which is made where it is missing. A damaged one is put
  // aside, and a new one begun.
  explicit State(const std::string& directory);
  State(const State&) = delete;
  State& operator=(const State&) = delete;
  ~State();

  // Makes all changes so far durable. False when that failed; it is then tried again later. Does
  // not throw.
  bool commit();

  // Whether no helper agent ever started with this state before.
  [[nodiscard]] bool isFirstStart() const { return isFirstStart_; }

  // Usage data. Whether it is collected is a host's own switch, which is on until it is set.
  void setCollects(std::string_view host, bool collects);
  bool collects(std::string_view host);
  void count(std::string_view productID, std::int64_t type, std::string_view target,
             std::string_view key);
  void collect(std::string_view productID, std::string_view target, std::string_view value);
  Collected collected(std::string_view productID);

  // Files. An upload is unfinished until it is known what the file is, or why that cannot be known.
  std::int64_t addUpload(const Upload& upload);
  void finishUpload(std::int64_t number, std::int64_t size, std::string_view sha256);
  void failUpload(std::int64_t number, std::string_view error);
  std::vector<Upload> unfinishedUploads();

  // Messages for the users of a product; each is taken once.
  void addMessage(std::string_view productID, std::string_view text);
  std::vector<std::string> takeMessages(std::string_view productID);

 private:
  static std::unique_ptr<Database> open(const std::string& directory);
  void recordStart();
  void change(Statement& statement);

  std::unique_ptr<Database> database_;
  bool isFirstStart_ = false;
  std::chrono::steady_clock::time_point oldestChange_;
  std::shared_ptr<qbdkr::RunLoopTimer> timer_;  // while there are changes that are not durable

  Statement setCollects_, collects_, count_, collect_, counters_, strings_, addUpload_,
      finishUpload_, failUpload_, unfinishedUploads_, addMessage_, messages_, forgetMessages_;
};

}  // namespace acme
