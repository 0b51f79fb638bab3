#pragma once

#include <functional>
#include <memory>
#include <mutex>

#include <ClientComm/RunLoop.h>

namespace qbdkr {

// The timer that starts the helper agent every 60 s. Facade objects share it and may come and go:
// the last timer made is the one in use, and ticks of others have no effect. Any thread. Must
// outlive its timers.
class AutoStart {
 public:
  // Calls start on each tick, on the thread of the timer's loop.
  explicit AutoStart(std::function<void()> start);

  // As a tick does.
  void start() const { start_(); }

  // Schedules a timer on a loop and takes it into use. Throws as the loop does.
  void scheduleOn(RunLoop& loop);
  // Ends the timer in use.
  void cancel();
  [[nodiscard]] bool isInUse(const RunLoopTimer* timer);

 private:
  std::function<void()> start_;
  std::mutex mutex_;
  std::shared_ptr<RunLoopTimer> timer_;
};

}  // namespace qbdkr
