#include "Platform/RunLoop.h"

#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <systemd/sd-event.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "Platform/Descriptor.h"
#include "Platform/Linux/MainEventLoop.h"
#include "Platform/TaskQueue.h"

namespace qbdkr {
namespace {

class EventLoop;

class EventTimer final : public RunLoopTimer, public std::enable_shared_from_this<EventTimer> {
 public:
  EventTimer(const std::shared_ptr<EventLoop>& loop, std::chrono::microseconds interval,
             RunLoop::TimerTask task)
      : loop_(loop),
        interval_(static_cast<std::uint64_t>(interval.count())),
        // 0 would mean a quarter of a second to sd-event; the slack is never 0.
        slack_(static_cast<std::uint64_t>(timerSlack(interval).count())),
        task_(std::move(task)) {}

  EventTimer(const EventTimer&) = delete;
  EventTimer& operator=(const EventTimer&) = delete;
  ~EventTimer() override { end(); }

  bool arm(sd_event* event);
  void invalidate() override;

  // On the loop's thread: no further tick.
  void end() { source_ = sd_event_source_disable_unref(source_); }

 private:
  static int fire(sd_event_source* source, std::uint64_t due, void* self);
  void tick(std::uint64_t due);

  std::weak_ptr<EventLoop> loop_;
  std::uint64_t interval_;  // microseconds, as the slack
  std::uint64_t slack_;
  RunLoop::TimerTask task_;
  std::atomic<bool> valid_{true};
  sd_event_source* source_ = nullptr;
};

// What a run loop consists of, shared with the timers and tasks that outlive its thread.
class EventLoop final : public RunLoop, public std::enable_shared_from_this<EventLoop> {
 public:
  EventLoop() : wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!wake_ || sd_event_new(&event_) < 0 ||
        sd_event_add_io(event_, nullptr, wake_.get(), EPOLLIN, onWake, this) < 0) {
      throw std::runtime_error("no event loop");
    }
  }
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;
  ~EventLoop() override {
    for (const auto& timer : timers_) timer->end();
    sd_event_unref(event_);
  }

  sd_event* event() { return event_; }

  void run() override {
    while (!stopped_.exchange(false)) {
      if (step(UINT64_MAX) < 0) return;
    }
  }

  void stop() override {
    const int before = errno;  // what a signal handler interrupts must not notice
    stopped_.store(true);
    wake();
    errno = before;
  }

  [[nodiscard]] int descriptor() const override { return sd_event_get_fd(event_); }

  void dispatch() override {
    // The host's own loop gets its turn however much there is to do here.
    constexpr int mostSteps = 100;
    int steps = 0;
    while (steps < mostSteps && step(0) > 0) ++steps;
    if (steps == mostSteps) wake();
    // Timers and descriptors added meanwhile reach the descriptor of the loop only here.
    if (sd_event_get_state(event_) == SD_EVENT_INITIAL) sd_event_prepare(event_);
  }

  void perform(Task task) override {
    tasks_.add(std::move(task));
    wake();
  }

  std::shared_ptr<RunLoopTimer> scheduleTimer(std::chrono::milliseconds interval,
                                              TimerTask task) override {
    auto timer =
        std::make_shared<EventTimer>(shared_from_this(), timerInterval(interval), std::move(task));
    if (!timer->arm(event_)) throw std::runtime_error("no timer");
    timers_.push_back(timer);
    wake();
    return timer;
  }

  void forget(const std::shared_ptr<EventTimer>& timer) {
    timer->end();
    std::erase(timers_, timer);
  }

 private:
  // One turn: 1 when something was done, 0 when nothing was due within the time-out.
  int step(std::uint64_t timeout) {
    int ready = sd_event_get_state(event_) == SD_EVENT_PENDING ? 1 : 0;
    if (sd_event_get_state(event_) == SD_EVENT_INITIAL) ready = sd_event_prepare(event_);
    if (ready == 0) ready = sd_event_wait(event_, timeout);
    if (ready <= 0) return ready;
    return sd_event_dispatch(event_) < 0 ? -1 : 1;
  }

  void wake() {
    const std::uint64_t one = 1;
    // It can only fail when the counter is full, and then the loop is awake.
    [[maybe_unused]] const auto written = ::write(wake_.get(), &one, sizeof one);
  }

  static int onWake(sd_event_source*, int descriptor, std::uint32_t, void* self) {
    std::uint64_t count = 0;
    [[maybe_unused]] const auto got = ::read(descriptor, &count, sizeof count);
    static_cast<EventLoop*>(self)->tasks_.perform();
    return 0;
  }

  Descriptor wake_;
  sd_event* event_ = nullptr;
  std::atomic<bool> stopped_{false};
  TaskQueue tasks_;
  std::vector<std::shared_ptr<EventTimer>> timers_;
};

bool EventTimer::arm(sd_event* event) {
  return sd_event_add_time_relative(event, &source_, CLOCK_MONOTONIC, interval_, slack_, fire,
                                    this) >= 0;
}

int EventTimer::fire(sd_event_source*, std::uint64_t due, void* self) {
  const auto timer = static_cast<EventTimer*>(self)->shared_from_this();
  timer->tick(due);
  return 0;
}

void EventTimer::tick(std::uint64_t due) {
  if (!valid_) return;
  std::uint64_t now = due;
  if (const auto loop = loop_.lock()) sd_event_now(loop->event(), CLOCK_MONOTONIC, &now);
  // Ticks that were missed while the thread was busy are not made up for.
  const std::uint64_t missed = now > due ? (now - due) / interval_ : 0;
  sd_event_source_set_time(source_, due + (missed + 1) * interval_);
  sd_event_source_set_enabled(source_, SD_EVENT_ONESHOT);
  try {
    task_(*this);
  } catch (...) {  // nothing may unwind through the event library
  }
}

void EventTimer::invalidate() {
  if (!valid_.exchange(false)) return;
  const auto loop = loop_.lock();
  if (!loop) return;
  loop->perform([loop = loop.get(), self = shared_from_this()] { loop->forget(self); });
}

EventLoop& mainLoop() {
  // Never destroyed: detached threads and the bus use it until the process ends.
  static const auto& loop = *new std::shared_ptr<EventLoop>(std::make_shared<EventLoop>());
  return *loop;
}

bool onMainThread() { return syscall(SYS_gettid) == getpid(); }

}  // namespace

RunLoop& RunLoop::main() { return mainLoop(); }

RunLoop& RunLoop::current() {
  if (onMainThread()) return main();
  thread_local const auto loop = std::make_shared<EventLoop>();
  return *loop;
}

sd_event* mainEventLoop() { return mainLoop().event(); }

}  // namespace qbdkr
