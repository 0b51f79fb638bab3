#include "Platform/Files/FileLock.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

namespace qbdkr {
namespace {

// Tells whether another file has taken the place of an open one, as while the lock was awaited. The
// next caller would lock that other file.
bool wasReplaced(int file, const std::string& path) {
  struct stat opened {};
  struct stat present {};
  return ::fstat(file, &opened) == 0 && ::stat(path.c_str(), &present) == 0 &&
         (opened.st_dev != present.st_dev || opened.st_ino != present.st_ino);
}

// A process that is out of descriptors knows nothing of the lock.
bool isShortage(int error) { return error == EMFILE || error == ENFILE || error == ENOMEM; }

}  // namespace

FileLock FileLock::acquire(const std::string& path, std::chrono::milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  // A file system may number its files anew all the time.
  constexpr int mostReplacements = 8;
  for (int replacements = 0;; ++replacements) {
    Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file) return {Descriptor(), isShortage(errno)};
    // flock() has no time-out of its own, and no event tells that a lock was released.
    constexpr int pauseInMilliseconds = 10;
    while (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
      if (errno != EWOULDBLOCK && errno != EINTR) return {Descriptor(), false};
      if (std::chrono::steady_clock::now() >= deadline) return {Descriptor(), true};
      ::poll(nullptr, 0, pauseInMilliseconds);
    }
    if (replacements == mostReplacements || !wasReplaced(file.get(), path)) {
      return {std::move(file), false};
    }
  }
}

FileLock& FileLock::operator=(FileLock&& other) noexcept {
  unlock();
  file_ = std::move(other.file_);
  taken_ = other.taken_;
  return *this;
}

// Not just closes: a child that was forked since then may have the descriptor as well.
void FileLock::unlock() {
  if (file_) ::flock(file_.get(), LOCK_UN);
  file_ = Descriptor();
}

}  // namespace qbdkr
