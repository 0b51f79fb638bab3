// Of the C library of macOS: kqueue(2) with the filters of a run loop, and the main thread.

#include <pthread.h>
#include <sys/epoll.h>
#include <sys/event.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cstdint>
#include <map>
#include <mutex>

#include "macos/doubles/Mach.h"

namespace {

std::mutex mutex;
std::map<int, int> timers;  // of each queue

bool watch(int queue, int descriptor) {
  epoll_event event{EPOLLIN, {}};
  return ::epoll_ctl(queue, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

void setTimer(int descriptor, std::intptr_t microseconds) {
  itimerspec due{};
  due.it_value = {microseconds / 1'000'000, microseconds % 1'000'000 * 1000};
  ::timerfd_settime(descriptor, 0, &due, nullptr);
}

bool apply(int queue, const struct kevent& change) {
  switch (change.filter) {
    case EVFILT_READ:
      return watch(queue, static_cast<int>(change.ident));
    case EVFILT_MACHPORT:
      return watch(queue, doubles::descriptorOfPort(static_cast<mach_port_t>(change.ident)));
    case EVFILT_TIMER:
      setTimer(timers.at(queue), change.data);
      return true;
    default:
      return false;
  }
}

}  // namespace

int kqueue(void) {
  const std::lock_guard lock(mutex);
  const int queue = ::epoll_create1(EPOLL_CLOEXEC);
  const int timer = ::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
  if (const auto before = timers.find(queue); before != timers.end()) ::close(before->second);
  timers[queue] = timer;
  watch(queue, timer);
  return queue;
}

// Takes only timers off the queue, as nothing else is taken off by being asked for.
int kevent(int queue, const struct kevent* changes, int count, struct kevent*, int most,
           const struct timespec*) {
  const std::lock_guard lock(mutex);
  for (int i = 0; i < count; ++i) {
    if (!apply(queue, changes[i])) return -1;
  }
  std::uint64_t ticks = 0;
  if (most > 0) [[maybe_unused]]
    const auto taken = ::read(timers.at(queue), &ticks, sizeof ticks);
  return 0;
}

int pthread_main_np(void) { return ::syscall(SYS_gettid) == ::getpid() ? 1 : 0; }
