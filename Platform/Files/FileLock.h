#pragma once

#include <chrono>
#include <string>
#include <utility>

#include <ClientComm/Export.h>

namespace qbdkr {

// An advisory lock, between threads and processes, on an existing file or directory. Its destructor
// releases it, and so does the end of the process, however it ends, unless a forked child still has
// it open. Three outcomes are possible: the lock is held; it is taken, as another owner kept it all
// the time; or neither, as the path cannot be opened or its file system has no locks.
class QBDKR_EXPORT FileLock {
 public:
  // Waits for the lock at most this long; 0 tries once. Blocks. Any thread.
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
  // Releases the lock early; without effect if it is not held.
  void release();

 private:
  FileLock(int descriptor, bool taken) : descriptor_(descriptor), taken_(taken) {}

  int descriptor_;
  bool taken_;
};

}  // namespace qbdkr
