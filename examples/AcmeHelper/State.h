#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <ClientComm/RunLoop.h>

namespace acme {

class Statement;

// A file that a host handed over, with its details.
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

// The durable state of this helper agent, in an SQLite database.
//
// Changes are gathered, and made durable together: by commit(), and by the run loop about half a
// second after the first of them. A kill therefore loses at most about the last half second, and
// never a change without all later ones.
//
// A change that cannot be stored, on a full disk for instance, loses those before it that are not
// durable yet. Nothing is stored after that, to keep this rule: the main run loop is stopped, and
// the next helper agent goes on from the durable state.
//
// Main thread only. Every call may throw DatabaseError unless it says otherwise.
class State {
 public:
  // Opens the database in a directory, which is made if it is missing. A damaged database is put
  // aside, and a new one begun.
  explicit State(const std::string& directory);
  State(const State&) = delete;
  State& operator=(const State&) = delete;
  ~State();

  // Makes all changes so far durable. False if something could not be stored. Does not throw.
  bool commit();

  // Tells whether this helper agent is the first one that started with this state.
  [[nodiscard]] bool isFirstStart() const;

  // Usage data. Each host has a switch for its collection, which is on until it is set.
  void setCollects(std::string_view host, bool collects);
  bool collects(std::string_view host);
  void count(std::string_view productID, std::int64_t type, std::string_view target,
             std::string_view key);
  void collect(std::string_view productID, std::string_view target, std::string_view value);
  Collected collected(std::string_view productID);

  // Files. An upload is unfinished until its size and digest are stored, or an error.
  std::int64_t addUpload(const Upload& upload);
  void finishUpload(std::int64_t number, std::int64_t size, std::string_view sha256);
  void failUpload(std::int64_t number, std::string_view error);
  std::vector<Upload> unfinishedUploads();

  // Messages for the users of a product. Each is taken once: its removal is durable before
  // takeMessages() returns it.
  void addMessage(std::string_view productID, std::string_view text);
  std::vector<std::string> takeMessages(std::string_view productID);

 private:
  struct Tables;

  static std::unique_ptr<Tables> open(const std::string& directory);
  void change(Statement& statement);
  void fail(const char* reason);

  std::unique_ptr<Tables> tables_;
  bool failed_ = false;
  std::chrono::steady_clock::time_point oldestChange_;
  std::shared_ptr<qbdkr::RunLoopTimer> timer_;  // while some changes are not durable
};

}  // namespace acme
