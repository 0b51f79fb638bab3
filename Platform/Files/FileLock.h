#pragma once

#include <chrono>
#include <string>
#include <utility>

#include <ClientComm/Export.h>

#include "Platform/Base/Descriptor.h"

namespace qbdkr {

// An advisory lock, between threads and processes, on an existing file or directory. Its destructor
// releases it, and so does the end of the process, however it ends, unless a forked child still has
// it open. Three outcomes are possible: the lock is held; it is taken, as another owner kept it all
// the time, or may be, as the process is out of descriptors; or neither, as the path cannot be
// opened or its file system has no locks.
class QBDKR_EXPORT FileLock {
 public:
  // Waits for the lock at most this long; 0 tries once. If the file is replaced meanwhile, locks
  // the new one. Blocks. Any thread.
  [[nodiscard]] static FileLock acquire(const std::string& path,
                                        std::chrono::milliseconds patience);

  FileLock(FileLock&&) = default;
  FileLock& operator=(FileLock&& other) noexcept;
  ~FileLock() { unlock(); }

  [[nodiscard]] bool isHeld() const { return static_cast<bool>(file_); }
  [[nodiscard]] bool isTaken() const { return taken_; }
  // Releases the lock early; without effect if it is not held.
  void unlock();

 private:
  FileLock(Descriptor file, bool taken) : file_(std::move(file)), taken_(taken) {}

  Descriptor file_;  // locked
  bool taken_;
};

}  // namespace qbdkr
