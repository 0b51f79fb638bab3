#include "Platform/Base/ResumeTimerLinux.h"

#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <utility>

namespace qbdkr {
namespace {

// The two clocks are read one after the other, and the thread may be held up in between.
constexpr std::chrono::milliseconds shortestSuspension(100);

std::chrono::nanoseconds read(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

}  // namespace

ResumeTimer::ResumeTimer(std::function<Duration()> timeSuspended)
    : timeSuspended_(std::move(timeSuspended)),
      timer_(timerfd_create(CLOCK_REALTIME, TFD_CLOEXEC | TFD_NONBLOCK)),
      before_(timeSuspended_()) {
  arm();
}

// The timer never expires. It is cancelled when the clock is set, as the kernel does at a resume.
void ResumeTimer::arm() {
  constexpr time_t never = 1LL << 40;
  const itimerspec end{{0, 0}, {never, 0}};
  timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &end, nullptr);
}

bool ResumeTimer::hasResumed() {
  std::uint64_t count = 0;
  if (::read(timer_.get(), &count, sizeof count) < 0 && errno == ECANCELED) arm();
  const Duration suspended = timeSuspended_();
  return suspended - std::exchange(before_, suspended) >= shortestSuspension;
}

// One clock counts the time in which the machine is suspended, the other does not.
ResumeTimer::Duration ResumeTimer::systemTimeSuspended() {
  const auto running = read(CLOCK_MONOTONIC);
  return read(CLOCK_BOOTTIME) - running;
}

}  // namespace qbdkr
