#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "support/Patience.h"

namespace qbdkr::test {

// Captures standard error while it lives.
class CapturedLog {
 public:
  CapturedLog();
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;
  ~CapturedLog();

  // Returns all lines so far, unchanged.
  [[nodiscard]] std::vector<std::string> rawLines();

  // Returns all lines so far, each without the date, the time and the process before it. A line
  // that does not begin with these is returned unchanged.
  [[nodiscard]] std::vector<std::string> lines();

  // Waits for a line, given without the date, the time and the process before it.
  bool waitForLine(std::string_view line, std::chrono::milliseconds time = patience);

 private:
  void drain();

  int before_ = -1;
  int read_ = -1;
  std::string text_;
};

}  // namespace qbdkr::test
