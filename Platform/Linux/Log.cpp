#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string_view>

#include "Platform/ForkSafeMutex.h"
#include "Platform/LogLine.h"

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

// The C library holds a lock of its own meanwhile, which a forked child would find held.
std::tm localTime(std::time_t seconds) {
  static auto& oneAtATime = *new ForkSafeMutex;
  const std::lock_guard lock(oneAtATime);
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

// Keeps a write to a pipe that nobody reads any more from ending the host.
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

// One write for the whole line, so that lines of several threads and processes do not mix.
void writeToStandardError(std::string_view line) {
  const std::string text = prefix().append(line) + '\n';
  const IgnoredBrokenPipe ignored;
  [[maybe_unused]] const auto written = ::write(STDERR_FILENO, text.data(), text.size());
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
