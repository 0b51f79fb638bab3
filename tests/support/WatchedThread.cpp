#include "support/WatchedThread.h"

#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <utility>

#include "support/Environment.h"

namespace qbdkr::test {
namespace {

// Returns whether the kernel has put a thread of this process to sleep.
bool sleeps(pid_t thread) {
  const std::string status = readFile("/proc/self/task/" + std::to_string(thread) + "/stat");
  const auto name = status.rfind(')');
  return name != std::string::npos && status.compare(name, 3, ") S") == 0;
}

}  // namespace

WatchedThread::WatchedThread(std::function<void()> body)
    : thread_([this, body = std::move(body)] {
        threadID_ = gettid();
        body();
        ended_ = true;
      }) {}

bool WatchedThread::waits() const {
  // No event tells that a thread went to sleep.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!ended_) {
    if (threadID_ != 0 && sleeps(threadID_) && !ended_) return true;
    if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("it goes on");
    std::this_thread::yield();
  }
  return false;
}

void WatchedThread::join() {
  if (thread_.joinable()) thread_.join();
}

}  // namespace qbdkr::test
