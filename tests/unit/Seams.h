#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Loop/RunLoop.h"
#include "Platform/PropertyLists/PropertyList.h"

namespace qbdkr::test {

// The linker puts these in the place of what the framework calls: RunLoop::current(), openFile(),
// detachNewThread(), Bundle::infoString(), queryProcessTable(), UserDefaults::object() and
// FileLock::acquire(). Without an object of one of the classes below the framework gets the real
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
  // Called for each on the thread that detaches it, when its body could begin.
  std::function<void()> onDetach = [] {};
  // Whether no thread can be made.
  std::atomic<bool> refuses{false};
  [[nodiscard]] std::size_t count() const;
  // Runs the oldest that has not run yet, on the calling thread.
  void runNext();

 private:
  mutable std::mutex mutex_;
  std::vector<std::function<void()>> bodies_;
};

// The texts of the information dictionary, which no process can change for itself: while it lives,
// these are the ones that are found.
class OtherInformation {
 public:
  explicit OtherInformation(PropertyList::Dictionary info);
  OtherInformation(const OtherInformation&) = delete;
  OtherInformation& operator=(const OtherInformation&) = delete;
  ~OtherInformation();

  [[nodiscard]] std::optional<std::string> string(std::string_view key) const;

 private:
  PropertyList::Dictionary info_;
};

// The kernel's process table: the real one, with a count of the looks at it.
class WatchedProcessTable {
 public:
  WatchedProcessTable();
  WatchedProcessTable(const WatchedProcessTable&) = delete;
  WatchedProcessTable& operator=(const WatchedProcessTable&) = delete;
  ~WatchedProcessTable();

  // Called when the table was copied, before the caller gets it.
  std::function<void()> onCopy = [] {};
  std::atomic<unsigned> queries{0};
};

// The user defaults: the real ones, with a call after each read of a key.
class WatchedDefaults {
 public:
  explicit WatchedDefaults(std::function<void(std::string_view key)> afterRead);
  WatchedDefaults(const WatchedDefaults&) = delete;
  WatchedDefaults& operator=(const WatchedDefaults&) = delete;
  ~WatchedDefaults();

  void wasRead(std::string_view key) const { afterRead_(key); }

 private:
  std::function<void(std::string_view)> afterRead_;
};

// File locks: the real ones, but none is waited for.
class ImpatientLocks {
 public:
  ImpatientLocks();
  ImpatientLocks(const ImpatientLocks&) = delete;
  ImpatientLocks& operator=(const ImpatientLocks&) = delete;
  ~ImpatientLocks();

  // Whether this file system has locks.
  std::atomic<bool> exist{true};
  // How long the framework would have waited for a path; 0 for one that it did not lock.
  [[nodiscard]] std::chrono::milliseconds patienceFor(const std::string& path) const;
  void note(const std::string& path, std::chrono::milliseconds patience);

 private:
  mutable std::mutex mutex_;
  std::map<std::string, std::chrono::milliseconds> patience_;
};

}  // namespace qbdkr::test
