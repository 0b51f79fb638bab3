#pragma once

#include <mutex>

#include "Platform/Base/Export.h"

namespace qbdkr {

// A mutex that is free in a child that was forked, with what it guards whole: fork() waits until no
// other thread holds one. For what is held for a moment only, never while another one is taken, and
// never while forking.
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
