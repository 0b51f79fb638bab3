#pragma once

#include <chrono>
#include <memory>
#include <utility>
#include <vector>

#include <ClientComm/RunLoop.h>

namespace qbdkr::test {

// Records the timers of a run loop; a test fires them.
class RecordingRunLoop final : public RunLoop {
 public:
  class Timer final : public RunLoopTimer {
   public:
    Timer(std::chrono::milliseconds interval, TimerTask task)
        : interval_(interval), task_(std::move(task)) {}
    void invalidate() override { valid_ = false; }
    void fire() const { task_(*this); }
    [[nodiscard]] bool isValid() const { return valid_; }
    [[nodiscard]] std::chrono::milliseconds interval() const { return interval_; }

   private:
    std::chrono::milliseconds interval_;
    TimerTask task_;
    bool valid_ = true;
  };

  [[nodiscard]] const std::vector<std::shared_ptr<Timer>>& timers() const { return timers_; }

  void clear() { timers_.clear(); }

  void run() override {}
  void stop() override {}
  [[nodiscard]] int descriptor() const override { return -1; }
  void dispatch() override {}
  void perform(Task task) override { task(); }
  std::shared_ptr<RunLoopTimer> scheduleTimer(std::chrono::milliseconds interval,
                                              TimerTask task) override {
    timers_.push_back(std::make_shared<Timer>(interval, std::move(task)));
    return timers_.back();
  }

 private:
  std::vector<std::shared_ptr<Timer>> timers_;
};

}  // namespace qbdkr::test
