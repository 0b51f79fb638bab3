#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string_view>

#include "Platform/Base/Descriptor.h"
#include "Platform/Base/ForkSafeMutex.h"
#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Log/NativeLog.h"

#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

namespace qbdkr {
namespace {

bool standardErrorIsJournal() {
  const char* stream = std::getenv("JOURNAL_STREAM");
  struct stat status {};
  if (stream == nullptr || fstat(STDERR_FILENO, &status) != 0) return false;
  return std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino) == stream;
}

// The C library locks its time zone during the call. The mutex keeps fork() waiting: otherwise the
// child could find that lock held for good.
std::tm localTime(std::time_t seconds) {
  static NeverDestroyed oneAtATime([] { return ForkSafeMutex(); });
  const std::lock_guard lock(*oneAtATime);
  std::tm local{};
  localtime_r(&seconds, &local);
  return local;
}

std::string prefix() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  const std::tm local = localTime(seconds);
  std::array<char, 32> date{};
  std::strftime(date.data(), date.size(), "%Y-%m-%d %H:%M:%S", &local);
  std::array<char, 128> text{};
  std::snprintf(text.data(), text.size(), "%s.%03d %s[%d] ", date.data(),
                static_cast<int>(milliseconds), program_invocation_short_name,
                static_cast<int>(getpid()));
  return text.data();
}

// Keeps a write to a pipe without a reader from ending the host.
class IgnoredBrokenPipe {
 public:
  IgnoredBrokenPipe() {
    sigemptyset(&brokenPipe_);
    sigaddset(&brokenPipe_, SIGPIPE);
    sigset_t pending;
    sigpending(&pending);
    wasPending_ = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &brokenPipe_, &before_);
  }
  IgnoredBrokenPipe(const IgnoredBrokenPipe&) = delete;
  IgnoredBrokenPipe& operator=(const IgnoredBrokenPipe&) = delete;
  ~IgnoredBrokenPipe() {
    constexpr timespec now{};
    if (!wasPending_) sigtimedwait(&brokenPipe_, nullptr, &now);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }

 private:
  sigset_t brokenPipe_{};
  sigset_t before_{};
  bool wasPending_ = false;
};

using Clock = std::chrono::steady_clock;

// Writes as much as fits, without blocking. O_NONBLOCK would apply to the other processes that
// share the open file as well, so it is not set there.
class StandardError {
 public:
  StandardError() {
    struct stat status {};
    if (fstat(STDERR_FILENO, &status) != 0) return;
    isSocket_ = S_ISSOCK(status.st_mode);
    mayWait_ = S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode);
  }

  // Returns the count of bytes written; -1 with EAGAIN if none fits.
  ssize_t write(std::string_view text) {
    if (isSocket_) {
      return ::send(STDERR_FILENO, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    }
    if (!mayWait_) return ::write(STDERR_FILENO, text.data(), text.size());
    if (!own_) {
      const iovec bytes{const_cast<char*>(text.data()), text.size()};
      const auto written = pwritev2(STDERR_FILENO, &bytes, 1, -1, RWF_NOWAIT);
      if (written >= 0 || (errno != EOPNOTSUPP && errno != ENOSYS)) return written;
      // A terminal, or a kernel before 6.4: opens the file once more, for this line alone.
      own_ = Descriptor(open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    }
    if (own_) return ::write(own_.get(), text.data(), text.size());
    if (!waitForRoom(std::chrono::milliseconds(0))) {
      errno = EAGAIN;
      return -1;
    }
    return ::write(STDERR_FILENO, text.data(), text.size());
  }

  static bool waitForRoom(std::chrono::milliseconds time) {
    pollfd room{STDERR_FILENO, POLLOUT, 0};
    return ::poll(&room, 1, static_cast<int>(time.count())) > 0;
  }

 private:
  bool isSocket_ = false;
  bool mayWait_ = false;
  Descriptor own_;
};

// Set if the last line found no room: the next ones do not wait again.
std::atomic<bool> isStuck{false};
// Set if the last line was cut: the next one begins a new line.
std::atomic<bool> isCut{false};

// Writes what fits within 0.2 s, and returns the count of bytes.
std::size_t writeInTime(std::string_view text) {
  StandardError error;
  constexpr std::chrono::milliseconds patience(200);
  const auto deadline = Clock::now() + (isStuck ? std::chrono::milliseconds(0) : patience);
  std::size_t count = 0;
  while (count < text.size()) {
    const auto written = error.write(text.substr(count));
    if (written > 0) {
      count += static_cast<std::size_t>(written);
    } else if (written < 0 && errno == EAGAIN) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
      isStuck = left.count() <= 0 || !StandardError::waitForRoom(left);
      if (isStuck) return count;
    } else if (written == 0 || errno != EINTR) {
      return count;
    }
  }
  isStuck = false;
  return count;
}

// Writes the whole line in one call if it fits: lines of several threads and processes do not mix.
void writeToStandardError(std::string_view line) {
  const bool wasCut = isCut.exchange(false);
  const std::string text = (wasCut ? "\n" : "") + prefix().append(line) + '\n';
  const IgnoredBrokenPipe ignored;
  const std::size_t count = writeInTime(text);
  if (count < text.size() && (wasCut || count > 0)) isCut = true;
}

}  // namespace

void writeLogLine(const std::string& line) {
  if (standardErrorIsJournal()) {
    sd_journal_send("MESSAGE=%s", line.c_str(), "PRIORITY=5", nullptr);
  } else {
    writeToStandardError(line);
  }
}

}  // namespace qbdkr
