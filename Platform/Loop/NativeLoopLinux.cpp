#include "Platform/Loop/NativeLoopLinux.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <systemd/sd-event.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <stdexcept>
#include <utility>

#include "Platform/Base/Descriptor.h"
#include "Platform/Loop/NativeLoop.h"

namespace qbdkr {
namespace {

struct EventDeleter {
  void operator()(sd_event* event) const { sd_event_unref(event); }
};
using Event = std::unique_ptr<sd_event, EventDeleter>;

Event newEvent() {
  sd_event* made = nullptr;
  sd_event_new(&made);
  return Event(made);
}

class EventTimer final : public NativeTimer {
 public:
  // A timer that is due is stored there, and ticks when sd-event has returned.
  EventTimer(std::chrono::microseconds interval, std::function<void()> tick,
             std::shared_ptr<EventTimer>& due)
      : NativeTimer(std::move(tick)),
        interval_(static_cast<std::uint64_t>(interval.count())),
        due_(due) {}
  EventTimer(const EventTimer&) = delete;
  EventTimer& operator=(const EventTimer&) = delete;
  ~EventTimer() override { end(); }

  // The slack is not 0, which sd-event would take for a quarter of a second.
  bool arm(sd_event* event, std::chrono::microseconds slack) {
    return sd_event_add_time_relative(event, &source_, CLOCK_MONOTONIC, interval_,
                                      static_cast<std::uint64_t>(slack.count()), onDue, this) >= 0;
  }

  void end() final { source_ = sd_event_source_disable_unref(source_); }

  using NativeTimer::tick;

 private:
  static int onDue(sd_event_source* source, std::uint64_t due, void* self) {
    auto& timer = *static_cast<EventTimer*>(self);
    std::uint64_t now = due;
    sd_event_now(sd_event_source_get_event(source), CLOCK_MONOTONIC, &now);
    const std::uint64_t missed = now > due ? (now - due) / timer.interval_ : 0;
    sd_event_source_set_time(source, due + (missed + 1) * timer.interval_);
    sd_event_source_set_enabled(source, SD_EVENT_ONESHOT);
    timer.due_ = std::static_pointer_cast<EventTimer>(timer.shared_from_this());
    return 0;
  }

  const std::uint64_t interval_;  // microseconds
  std::shared_ptr<EventTimer>& due_;
  sd_event_source* source_ = nullptr;
};

// sd-event refuses a turn inside one of its callbacks, so these only note what is due. The loop
// calls it when sd-event has returned: the callee may take turns itself, as for a modal dialog.
class EventLoop final : public NativeLoop {
 public:
  explicit EventLoop(std::function<void()> onWake)
      : onWake_(std::move(onWake)),
        wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
        event_(newEvent()) {
    if (!wake_ || !event_ ||
        sd_event_add_io(event_.get(), nullptr, wake_.get(), EPOLLIN, onReadable, this) < 0) {
      throw std::runtime_error("no event loop");
    }
  }

  sd_event* event() { return event_.get(); }

  // A callback of sd-event needs no descriptor to wake its own loop.
  void wake() override {
    if (dispatching_.load(std::memory_order_relaxed) == pthread_self()) {
      isWoken_ = true;
      return;
    }
    const std::uint64_t one = 1;
    // Fails only if the counter is full, and then the loop is awake.
    [[maybe_unused]] const auto written = ::write(wake_.get(), &one, sizeof one);
  }

  [[nodiscard]] int descriptor() override { return sd_event_get_fd(event_.get()); }

  Turn turn(bool waits) override {
    int ready = state() == SD_EVENT_PENDING ? 1 : 0;
    // The preparation is older than what the last callee added, and only a wait takes it back.
    if (state() == SD_EVENT_ARMED) ready = sd_event_wait(event_.get(), 0);
    if (state() == SD_EVENT_INITIAL) ready = prepare();
    if (ready == 0) ready = sd_event_wait(event_.get(), waits ? UINT64_MAX : 0);
    if (ready == 0) return Turn::nothingDue;
    if (ready < 0 || !dispatchOne()) return Turn::failed;
    callDue();
    return Turn::done;
  }

  // Timers and descriptors that the turns added reach the descriptor of the loop only here.
  void endTurns() override { show(); }

  std::shared_ptr<NativeTimer> startTimer(std::chrono::microseconds interval,
                                          std::chrono::microseconds slack,
                                          std::function<void()> tick) override {
    auto timer = std::make_shared<EventTimer>(interval, std::move(tick), dueTimer_);
    if (!timer->arm(event_.get(), slack)) return nullptr;
    wake();  // a host that watches the descriptor takes a turn, which lets it show the timer
    return timer;
  }

 private:
  [[nodiscard]] int state() const { return sd_event_get_state(event_.get()); }
  int prepare() { return sd_event_prepare(event_.get()); }

  bool dispatchOne() {
    dispatching_.store(pthread_self(), std::memory_order_relaxed);
    const bool isDone = sd_event_dispatch(event_.get()) >= 0;
    dispatching_.store(noThread, std::memory_order_relaxed);
    return isDone;
  }

  void callDue() {
    const bool woken = isWoken_.exchange(false);
    const auto timer = std::exchange(dueTimer_, nullptr);
    if (!woken && !timer) return;
    show();  // the callee may wait on the descriptor
    if (woken) onWake_();
    if (timer) timer->tick();
  }

  // Makes the descriptor readable if a turn would do something. A timer that sd-event has already
  // found due does not show there by itself.
  void show() {
    if (state() != SD_EVENT_INITIAL || prepare() <= 0) return;
    pollfd shown{descriptor(), POLLIN, 0};
    if (::poll(&shown, 1, 0) == 0) wake();
  }

  static int onReadable(sd_event_source*, int descriptor, std::uint32_t, void* self) {
    std::uint64_t count = 0;
    [[maybe_unused]] const auto got = ::read(descriptor, &count, sizeof count);
    static_cast<EventLoop*>(self)->isWoken_ = true;
    return 0;
  }

  const std::function<void()> onWake_;
  const Descriptor wake_;
  const Event event_;
  static constexpr pthread_t noThread{};
  std::atomic<pthread_t> dispatching_{noThread};
  std::atomic<bool> isWoken_{false};  // a signal handler may wake the loop
  std::shared_ptr<EventTimer> dueTimer_;
};

}  // namespace

std::unique_ptr<NativeLoop> makeNativeLoop(bool /*ofMainThread*/, std::function<void()> onWake) {
  return std::make_unique<EventLoop>(std::move(onWake));
}

bool isMainThread() { return syscall(SYS_gettid) == getpid(); }

sd_event* mainEventLoop() { return static_cast<EventLoop&>(mainNativeLoop()).event(); }

}  // namespace qbdkr
