#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "support/AppendedFile.h"

namespace qbdkr::test {

// Compares the requests of hosts with a load, see SteadyLoad.h, with the transcript of the helper
// agents that served them.
class Ledger {
 public:
  using Clock = std::chrono::steady_clock;

  explicit Ledger(std::filesystem::path transcript);

  // Returns the file for the load of a host.
  std::string add(const std::string& hostIdentifier);

  // Reads on and compares.
  void update();

  struct Answer {
    Clock::time_point time;
    pid_t process = 0;
    std::string version;
  };
  // Returns the latest answer of any host.
  [[nodiscard]] const Answer& latest() const { return latest_; }

  // Returns the longest time between two answers, or since the latest one, and forgets it.
  std::chrono::milliseconds takeLongestGap();

  struct Counts {
    std::size_t answered = 0;
    std::size_t taken = 0;
    std::size_t served = 0;
    std::size_t starts = 0;                     // of a helper agent
    std::map<std::string, std::size_t> failed;  // by status
  };
  [[nodiscard]] const Counts& counts() const { return counts_; }

  // Returns a line for each request that was lost or served twice, and for each process that served
  // when another one had begun to. Lists no more than the first of many.
  [[nodiscard]] const std::vector<std::string>& faults() const { return faults_; }

 private:
  struct Host {
    AppendedFile log;
    std::vector<bool> served;            // by number
    std::vector<unsigned long> certain;  // those that must have been served
  };

  void readLog(Host& host);
  void readTranscript();
  void noteService(const std::vector<std::string>& words);
  void noteServer(const std::string& process);
  void fault(const std::string& text);

  AppendedFile transcript_;
  std::map<std::string, Host> hosts_;
  std::vector<Answer> answers_;  // of this update
  Answer latest_;
  Clock::duration longestGap_{};
  std::string server_;
  std::set<std::string> formerServers_;
  Counts counts_;
  std::vector<std::string> faults_;
};

}  // namespace qbdkr::test
