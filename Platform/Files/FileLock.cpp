#include "Platform/Files/FileLock.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "Platform/Base/Descriptor.h"

namespace qbdkr {

FileLock FileLock::acquire(const std::string& path, std::chrono::milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file) return {-1, false};
  // flock() has no time-out of its own, and no event tells that a lock was released.
  constexpr int pauseInMilliseconds = 10;
  while (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) return {-1, false};
    if (std::chrono::steady_clock::now() >= deadline) return {-1, true};
    ::poll(nullptr, 0, pauseInMilliseconds);
  }
  return {file.release(), false};
}

// Unlocks, not just closes: a child that was forked since then may have the descriptor as well.
void FileLock::release() {
  if (descriptor_ < 0) return;
  ::flock(descriptor_, LOCK_UN);
  ::close(std::exchange(descriptor_, -1));
}

}  // namespace qbdkr
