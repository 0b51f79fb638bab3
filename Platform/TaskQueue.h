#pragma once

#include <algorithm>
#include <chrono>
#include <mutex>
#include <utility>
#include <vector>

#include "Platform/RunLoop.h"

namespace qbdkr {

// The tasks that other threads gave a run loop, in their order.
class TaskQueue {
 public:
  void add(RunLoop::Task task) {
    const std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
  }

  // Performs what is there now. On the loop's thread.
  void perform() {
    std::vector<RunLoop::Task> due;
    {
      const std::lock_guard lock(mutex_);
      due.swap(tasks_);
    }
    for (const RunLoop::Task& task : due) {
      try {
        task();
      } catch (...) {  // nothing may unwind through the system's event loop
      }
    }
  }

 private:
  std::mutex mutex_;
  std::vector<RunLoop::Task> tasks_;
};

// The interval of a timer: one that is always due would leave nothing else a turn.
constexpr std::chrono::microseconds timerInterval(std::chrono::milliseconds asked) {
  return std::max(asked, std::chrono::milliseconds(1));
}

// How late a timer may fire, so that the system can wake up once for several: a tenth of the
// interval, a quarter of a second at most.
constexpr std::chrono::microseconds timerSlack(std::chrono::microseconds interval) {
  using std::chrono::microseconds;
  return std::clamp<microseconds>(interval / 10, microseconds(1), std::chrono::milliseconds(250));
}

}  // namespace qbdkr
