#pragma once

#include <chrono>
#include <string>
#include <utility>

#include "Platform/Base/Export.h"

namespace qbdkr {

// An advisory lock between threads and processes on a file or directory that exists. Released by
// its destruction, and by the end of the process however it ends. There are three outcomes: it is
// held; it is taken, because another one has kept it all the time; or it is neither, because the
// path cannot be opened or its file system has no locks.
class QBDKR_EXPORT FileLock {
 public:
  // Waits for the lock at most this long. Any thread.
  [[nodiscard]] static FileLock acquire(const std::string& path,
                                        std::chrono::milliseconds patience);

  FileLock(FileLock&& other) noexcept
      : descriptor_(std::exchange(other.descriptor_, -1)), taken_(other.taken_) {}
  FileLock& operator=(FileLock&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    std::swap(taken_, other.taken_);
    return *this;
  }
  ~FileLock() { release(); }

  [[nodiscard]] bool isHeld() const { return descriptor_ >= 0; }
  [[nodiscard]] bool isTaken() const { return taken_; }
  void release();

 private:
  FileLock(int descriptor, bool taken) : descriptor_(descriptor), taken_(taken) {}

  int descriptor_;
  bool taken_;
};

}  // namespace qbdkr
