#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Platform/RunLoop.h"

namespace qbdkr::test {

// The linker puts these in the place of what the framework calls: RunLoop::current(), openFile()
// and detachNewThread(). Without an object of one of the classes below the framework gets the real
// thing.

// The run loop of the calling code: keeps the timers, and fires them when it is told to.
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

  RecordingRunLoop();
  RecordingRunLoop(const RecordingRunLoop&) = delete;
  RecordingRunLoop& operator=(const RecordingRunLoop&) = delete;
  ~RecordingRunLoop() override;

  [[nodiscard]] const std::vector<std::shared_ptr<Timer>>& timers() const { return timers_; }

  void run() override {}
  void stop() override {}
  [[nodiscard]] int descriptor() const override { return -1; }
  void dispatch() override {}
  void perform(Task task) override { task(); }
  std::shared_ptr<RunLoopTimer> scheduleTimer(std::chrono::milliseconds interval,
                                              TimerTask task) override;

 private:
  std::vector<std::shared_ptr<Timer>> timers_;
};

// The workspace: opens nothing, and answers what it is told.
class RecordingWorkspace {
 public:
  RecordingWorkspace();
  RecordingWorkspace(const RecordingWorkspace&) = delete;
  RecordingWorkspace& operator=(const RecordingWorkspace&) = delete;
  ~RecordingWorkspace();

  bool open(const std::string& path);
  // Called in the place of opening.
  std::function<bool(const std::string& path)> answer = [](const std::string&) { return true; };
  [[nodiscard]] std::vector<std::string> opened() const;

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> opened_;
};

// Threads that the framework wants to detach: none starts, and the test runs what they would have
// done.
class HeldThreads {
 public:
  HeldThreads();
  HeldThreads(const HeldThreads&) = delete;
  HeldThreads& operator=(const HeldThreads&) = delete;
  ~HeldThreads();

  bool hold(std::function<void()> body);
  [[nodiscard]] std::size_t count() const;
  // Runs the oldest that has not run yet, on the calling thread.
  void runNext();

 private:
  mutable std::mutex mutex_;
  std::vector<std::function<void()>> bodies_;
};

}  // namespace qbdkr::test
