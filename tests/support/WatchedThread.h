#pragma once

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <thread>

namespace qbdkr::test {

// Runs a thread and tells whether it waits, such as for a lock that another thread holds.
class WatchedThread {
 public:
  explicit WatchedThread(std::function<void()> body);
  WatchedThread(const WatchedThread&) = delete;
  WatchedThread& operator=(const WatchedThread&) = delete;
  ~WatchedThread() { join(); }

  // Returns true as soon as the body waits, false if it ends without waiting.
  [[nodiscard]] bool waits() const;
  void join();

 private:
  std::atomic<pid_t> threadID_{0};
  std::atomic<bool> ended_{false};
  std::thread thread_;
};

}  // namespace qbdkr::test
