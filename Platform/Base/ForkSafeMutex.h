#pragma once

#include <mutex>

#include <ClientComm/Export.h>

namespace qbdkr {

// A mutex that is free in a forked child, with the data it guards consistent: fork() waits until no
// other thread holds one. Hold it for a moment only. Never take a second one while holding it, and
// never fork while holding it. Any thread; lock() blocks. The constructor throws std::bad_alloc if
// out of memory.
class QBDKR_EXPORT ForkSafeMutex {
 public:
  ForkSafeMutex();
  ForkSafeMutex(const ForkSafeMutex&) = delete;
  ForkSafeMutex& operator=(const ForkSafeMutex&) = delete;
  ~ForkSafeMutex();

  void lock() { mutex_.lock(); }
  void unlock() { mutex_.unlock(); }
  bool try_lock() { return mutex_.try_lock(); }

 private:
  std::mutex mutex_;
};

}  // namespace qbdkr
