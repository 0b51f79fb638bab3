#pragma once

#include <functional>
#include <memory>
#include <mutex>

#include <ClientComm/RunLoop.h>

namespace qbdkr {

// Owns the timer that starts the helper agent every 60 s. All facade objects share it: the last
// timer made is in use, and ticks of others have no effect. Any thread. Must outlive its timers.
class AutoStart {
 public:
  // Calls start on each tick, on the thread of the timer's loop.
  explicit AutoStart(std::function<void()> start);

  // Does the same as a tick.
  void start() const { start_(); }

  // Schedules a timer on a loop, and uses it from then on. Loop's thread only. Throws as the loop
  // does.
  void scheduleOn(RunLoop& loop);
  // Ends the timer in use.
  void cancel();
  // Tells whether this timer is in use; false for null.
  [[nodiscard]] bool isInUse(const RunLoopTimer* timer);

 private:
  std::function<void()> start_;
  std::mutex mutex_;
  std::shared_ptr<RunLoopTimer> timer_;
};

}  // namespace qbdkr
