#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace qbdkr::test {

// Takes standard error for as long as it lives, and gives out its lines.
class CapturedLog {
 public:
  CapturedLog();
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;
  ~CapturedLog();

  // All lines so far, as they were written.
  [[nodiscard]] std::vector<std::string> rawLines();

  // All lines so far, each without the date, the time and the process before it. A line that does
  // not begin so is given out whole.
  [[nodiscard]] std::vector<std::string> lines();

  // Waits until a line is there, without the date, the time and the process before it.
  bool waitForLine(std::string_view line,
                   std::chrono::milliseconds patience = std::chrono::seconds(20));

 private:
  void drain();

  int before_ = -1;
  int read_ = -1;
  std::string text_;
};

}  // namespace qbdkr::test
