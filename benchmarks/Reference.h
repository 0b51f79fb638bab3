#pragma once

#include <string>

namespace qbdkr::bench {

// The references of the benchmarks: the same call to the same peer on a bare connection, and the
// same question to the system's own tool.
class BareConnection {
 public:
  explicit BareConnection(std::string name);
  BareConnection(const BareConnection&) = delete;
  BareConnection& operator=(const BareConnection&) = delete;
  ~BareConnection();

  bool call(const char* method, const std::string& text);
  bool post(const char* method, const std::string& text);

 private:
  struct State;
  State* state_;
};

// Runs "pgrep -x NAME"; true if it ran.
bool runPgrep(const char* name);

}  // namespace qbdkr::bench
