#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <mutex>
#include <vector>

namespace qbdkr::test {

// Holds the threads that the framework starts: the test runs their bodies.
class HeldThreads {
 public:
  HeldThreads() = default;
  HeldThreads(const HeldThreads&) = delete;
  HeldThreads& operator=(const HeldThreads&) = delete;

  // Replaces detachNewThread().
  bool hold(std::function<void()> body);
  // Returns hold() as a function. This object must outlive it.
  [[nodiscard]] std::function<bool(std::function<void()>)> starter();

  // Called when a body could begin, on the thread that starts it.
  std::function<void()> onStart = [] {};
  // Whether no thread can be made.
  std::atomic<bool> refuses{false};

  [[nodiscard]] std::size_t count() const;
  // Runs the oldest body that has not run yet, on the calling thread.
  void runNext();
  // Runs all bodies, and those that they start.
  void runAll();
  void clear();

 private:
  mutable std::mutex mutex_;
  std::vector<std::function<void()>> bodies_;
};

}  // namespace qbdkr::test
