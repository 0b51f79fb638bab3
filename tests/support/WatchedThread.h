#pragma once

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <thread>

namespace qbdkr::test {

// A thread of which can be told that it waits for something, such as a lock that another holds.
class WatchedThread {
 public:
  explicit WatchedThread(std::function<void()> body);
  WatchedThread(const WatchedThread&) = delete;
  WatchedThread& operator=(const WatchedThread&) = delete;
  ~WatchedThread() { join(); }

  // True as soon as the body waits, false when it ends without that.
  [[nodiscard]] bool waits() const;
  void join();

 private:
  std::atomic<pid_t> threadID_{0};
  std::atomic<bool> ended_{false};
  std::thread thread_;
};

}  // namespace qbdkr::test
