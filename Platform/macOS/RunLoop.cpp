#include "Platform/RunLoop.h"

#include <CoreFoundation/CoreFoundation.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/event.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Platform/Descriptor.h"
#include "Platform/TaskQueue.h"
#include "Platform/macOS/CoreFoundationRef.h"
#include "Platform/macOS/EventPort.h"

namespace qbdkr {
namespace {

using Seconds = std::chrono::duration<double>;  // as Core Foundation counts time

// What wakes the loop from other threads and from signal handlers, which may do little more than
// write a byte.
struct WakePipe {
  Descriptor in;
  Descriptor out;

  static WakePipe open() {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) return {};
    WakePipe made{Descriptor(ends[0]), Descriptor(ends[1])};
    for (const int end : ends) {
      ::fcntl(end, F_SETFD, FD_CLOEXEC);
      ::fcntl(end, F_SETFL, O_NONBLOCK);
    }
    return made;
  }

  void drain() const {
    std::array<char, 64> bytes{};
    while (::read(in.get(), bytes.data(), bytes.size()) > 0) {
    }
  }
};

// What a host with a loop of its own watches: readable when the pipe is, when a timer is due, and
// when an Apple event came.
class WatchedQueue {
 public:
  WatchedQueue() : queue_(::kqueue()) {
    if (queue_) ::fcntl(queue_.get(), F_SETFD, FD_CLOEXEC);
  }

  [[nodiscard]] int get() const { return queue_.get(); }

  bool watchDescriptor(int descriptor) {
    return change(static_cast<std::uintptr_t>(descriptor), EVFILT_READ, EV_ADD, 0, 0);
  }

  bool watchPort(mach_port_t port) { return change(port, EVFILT_MACHPORT, EV_ADD, 0, 0); }

  void wakeAfter(Seconds delay) {
    constexpr Seconds longest = std::chrono::hours(24);
    const auto wait = std::chrono::duration_cast<std::chrono::microseconds>(
        std::clamp(delay, Seconds(0), longest));
    change(timer, EVFILT_TIMER, EV_ADD | EV_ONESHOT, NOTE_USECONDS,
           std::max<std::intptr_t>(wait.count(), 1));
  }

  // A timer that came due stays so until it is taken. What else there is stays until it is done.
  void takeDue() {
    std::array<struct kevent, 4> due{};
    constexpr timespec now{};
    ::kevent(queue_.get(), nullptr, 0, due.data(), static_cast<int>(due.size()), &now);
  }

 private:
  static constexpr std::uintptr_t timer = 1;

  bool change(std::uintptr_t identifier, std::int16_t filter, std::uint16_t flags,
              std::uint32_t details, std::intptr_t data) {
    struct kevent wanted {};
    EV_SET(&wanted, identifier, filter, flags, details, data, nullptr);
    return ::kevent(queue_.get(), &wanted, 1, nullptr, 0, nullptr) == 0;
  }

  Descriptor queue_;
};

class SystemLoop;

class SystemTimer final : public RunLoopTimer, public std::enable_shared_from_this<SystemTimer> {
 public:
  SystemTimer(const std::shared_ptr<SystemLoop>& loop, RunLoop::TimerTask task)
      : loop_(loop), task_(std::move(task)) {}

  SystemTimer(const SystemTimer&) = delete;
  SystemTimer& operator=(const SystemTimer&) = delete;
  ~SystemTimer() override { end(); }

  bool schedule(CFRunLoopRef loop, std::chrono::microseconds interval) {
    CFRunLoopTimerContext context{0, this, nullptr, nullptr, nullptr};
    const CFTimeInterval seconds = Seconds(interval).count();
    timer_ = CFRef<CFRunLoopTimerRef>(CFRunLoopTimerCreate(kCFAllocatorDefault,
                                                           CFAbsoluteTimeGetCurrent() + seconds,
                                                           seconds, 0, 0, onFire, &context));
    if (!timer_) return false;
    CFRunLoopTimerSetTolerance(timer_.get(), Seconds(timerSlack(interval)).count());
    CFRunLoopAddTimer(loop, timer_.get(), kCFRunLoopDefaultMode);
    return true;
  }

  void invalidate() override;

  // On the loop's thread: no further tick.
  void end() {
    if (timer_) CFRunLoopTimerInvalidate(timer_.get());
    timer_ = {};
  }

 private:
  // Ticks that were missed while the thread was busy are not made up for: the system goes on from
  // the next one that is still to come.
  static void onFire(CFRunLoopTimerRef, void* self) {
    const auto timer = static_cast<SystemTimer*>(self)->shared_from_this();
    if (!timer->valid_) return;
    try {
      timer->task_(*timer);
    } catch (...) {  // nothing may unwind through Core Foundation
    }
  }

  std::weak_ptr<SystemLoop> loop_;
  RunLoop::TimerTask task_;
  std::atomic<bool> valid_{true};
  CFRef<CFRunLoopTimerRef> timer_;
};

// The system's own loop of a thread; what others do on it goes on beside us.
class SystemLoop final : public RunLoop, public std::enable_shared_from_this<SystemLoop> {
 public:
  SystemLoop(CFRunLoopRef loop, bool isMain)
      : loop_(CFRef<CFRunLoopRef>::retained(loop)), isMain_(isMain), pipe_(WakePipe::open()) {
    if (!pipe_.in || !queue_.watchDescriptor(pipe_.in.get()) || !addWakeSource()) {
      throw std::runtime_error("no run loop");
    }
  }
  SystemLoop(const SystemLoop&) = delete;
  SystemLoop& operator=(const SystemLoop&) = delete;
  ~SystemLoop() override {
    for (const auto& timer : timers_) timer->end();
    if (source_) CFRunLoopSourceInvalidate(source_.get());
    if (file_) CFFileDescriptorInvalidate(file_.get());
  }

  void run() override {
    listen();
    while (!stopped_.exchange(false)) {
      constexpr CFTimeInterval aYear = 365.0 * 24 * 60 * 60;
      if (CFRunLoopRunInMode(kCFRunLoopDefaultMode, aYear, 0) == kCFRunLoopRunFinished) return;
    }
  }

  void stop() override {
    const int before = errno;  // what a signal handler interrupts must not notice
    stopped_.store(true);
    wake();
    errno = before;
  }

  [[nodiscard]] int descriptor() const override { return queue_.get(); }

  void dispatch() override {
    listen();
    queue_.takeDue();
    pipe_.drain();
    tasks_.perform();
    // The host's own loop gets its turn however much there is to do here.
    constexpr int mostSteps = 100;
    int steps = 0;
    while (steps < mostSteps &&
           CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, 1) == kCFRunLoopRunHandledSource) {
      ++steps;
    }
    if (steps == mostSteps) wake();
    watchNextTimer();
  }

  void perform(Task task) override {
    tasks_.add(std::move(task));
    wake();
  }

  std::shared_ptr<RunLoopTimer> scheduleTimer(std::chrono::milliseconds interval,
                                              TimerTask task) override {
    auto timer = std::make_shared<SystemTimer>(shared_from_this(), std::move(task));
    if (!timer->schedule(loop_.get(), timerInterval(interval))) {
      throw std::runtime_error("no timer");
    }
    timers_.push_back(timer);
    watchNextTimer();
    return timer;
  }

  void forget(const std::shared_ptr<SystemTimer>& timer) {
    timer->end();
    std::erase(timers_, timer);
  }

 private:
  bool addWakeSource() {
    CFFileDescriptorContext context{0, this, nullptr, nullptr, nullptr};
    file_ = CFRef<CFFileDescriptorRef>(
        CFFileDescriptorCreate(kCFAllocatorDefault, pipe_.in.get(), 0, onWake, &context));
    if (!file_) return false;
    source_ = CFRef<CFRunLoopSourceRef>(
        CFFileDescriptorCreateRunLoopSource(kCFAllocatorDefault, file_.get(), 0));
    if (!source_) return false;
    CFFileDescriptorEnableCallBacks(file_.get(), kCFFileDescriptorReadCallBack);
    CFRunLoopAddSource(loop_.get(), source_.get(), kCFRunLoopCommonModes);
    return true;
  }

  // Events come in only where this loop is the one that runs, so not before it does.
  void listen() {
    if (!isMain_ || listening_) return;
    const mach_port_t port = listenForEvents();
    listening_ = port != MACH_PORT_NULL && queue_.watchPort(port);
  }

  void watchNextTimer() {
    const CFAbsoluteTime next = CFRunLoopGetNextTimerFireDate(loop_.get(), kCFRunLoopDefaultMode);
    if (next > 0) queue_.wakeAfter(Seconds(next - CFAbsoluteTimeGetCurrent()));
  }

  void wake() {
    // It can only fail when the pipe is full, and then the loop is awake.
    [[maybe_unused]] const auto written = ::write(pipe_.out.get(), "", 1);
  }

  static void onWake(CFFileDescriptorRef file, CFOptionFlags, void* self) {
    auto& loop = *static_cast<SystemLoop*>(self);
    loop.pipe_.drain();
    CFFileDescriptorEnableCallBacks(file, kCFFileDescriptorReadCallBack);  // one call each time
    loop.tasks_.perform();
    if (loop.stopped_) CFRunLoopStop(loop.loop_.get());
  }

  CFRef<CFRunLoopRef> loop_;
  const bool isMain_;
  bool listening_ = false;
  WakePipe pipe_;
  WatchedQueue queue_;
  CFRef<CFFileDescriptorRef> file_;
  CFRef<CFRunLoopSourceRef> source_;
  std::atomic<bool> stopped_{false};
  TaskQueue tasks_;
  std::vector<std::shared_ptr<SystemTimer>> timers_;
};

void SystemTimer::invalidate() {
  if (!valid_.exchange(false)) return;
  const auto loop = loop_.lock();
  if (!loop) return;
  loop->perform([loop = loop.get(), self = shared_from_this()] { loop->forget(self); });
}

SystemLoop& mainLoop() {
  // Never destroyed: detached threads and the Apple Event Manager use it until the process ends.
  static const auto& loop =
      *new std::shared_ptr<SystemLoop>(std::make_shared<SystemLoop>(CFRunLoopGetMain(), true));
  return *loop;
}

}  // namespace

RunLoop& RunLoop::main() { return mainLoop(); }

RunLoop& RunLoop::current() {
  if (pthread_main_np() != 0) return main();
  thread_local const auto loop = std::make_shared<SystemLoop>(CFRunLoopGetCurrent(), false);
  return *loop;
}

}  // namespace qbdkr
