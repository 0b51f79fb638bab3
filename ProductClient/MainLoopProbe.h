#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>

#include "Platform/Base/ForkSafeMutex.h"
#include "ProductClient/CauseFinder.h"

namespace qbdkr {

// Finds out whether the main run loop takes its turns. Any thread.
class MainLoopProbe {
 public:
  // Waits for a turn, this long at most. On the main thread it does not wait, and the state is
  // unknown. Leaves one task in a loop that stands still, however often it is asked. Throws only
  // std::bad_alloc.
  [[nodiscard]] MainLoop state(std::chrono::milliseconds patience);

 private:
  struct Question {
    std::atomic<bool> isAnswered{false};
    ForkSafeMutex mutex;  // guards the wait
    std::condition_variable_any answered;
  };

  [[nodiscard]] std::shared_ptr<Question> question();

  ForkSafeMutex mutex_;
  std::shared_ptr<Question> last_;
};

}  // namespace qbdkr
