#pragma once

#include <chrono>
#include <vector>

#include <ClientComm/Export.h>

namespace qbdkr {

// Decides when something that keeps failing may be tried again: at once, but after five failures
// within 10 s only after 1 s, after the next one after 2 s, and so on up to 60 s.
class QBDKR_EXPORT RestartDamping {
 public:
  using Clock = std::chrono::steady_clock;

  // Records a failure. The pause that it may cause begins at its time.
  void fail(Clock::time_point time);
  // Forgets all failures.
  void clear();

  // Returns the end of the last pause.
  [[nodiscard]] Clock::time_point pauseEnd() const { return pauseEnd_; }

 private:
  std::vector<Clock::time_point> failures_;  // the latest ones
  std::chrono::seconds pause_{0};
  Clock::time_point pauseEnd_;
};

}  // namespace qbdkr
