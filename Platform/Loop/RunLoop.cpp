#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <utility>
#include <vector>

#include <ClientComm/RunLoop.h>

#include "Platform/Base/DropExceptions.h"
#include "Platform/Base/ForkSafeMutex.h"
#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Loop/MainThread.h"
#include "Platform/Loop/NativeLoop.h"

namespace qbdkr {
namespace {

// The tasks that were given to a run loop, in their order.
class TaskQueue {
 public:
  void add(RunLoop::Task task) {
    const std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
  }

  // Performs the tasks given so far, in their order also if one of them takes turns of the loop:
  // the loop is woken for those that are left then. Loop's thread only.
  void perform(NativeLoop& loop) {
    auto left = count();
    if (left > 1) loop.wake();
    for (; left > 0; --left) {
      if (const auto task = next()) dropExceptions(task);
    }
  }

 private:
  std::size_t count() {
    const std::lock_guard lock(mutex_);
    return tasks_.size();
  }

  // Takes the first task; null without one.
  RunLoop::Task next() {
    const std::lock_guard lock(mutex_);
    if (tasks_.empty()) return nullptr;
    auto task = std::move(tasks_.front());
    tasks_.pop_front();
    return task;
  }

  ForkSafeMutex mutex_;
  std::deque<RunLoop::Task> tasks_;
};

class ThreadLoop;

class Timer final : public RunLoopTimer, public std::enable_shared_from_this<Timer> {
 public:
  Timer(std::weak_ptr<ThreadLoop> loop, RunLoop::TimerTask task)
      : loop_(std::move(loop)), task_(std::move(task)) {}
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;
  ~Timer() override { end(); }

  bool start(NativeLoop& native, std::chrono::milliseconds asked) {
    using std::chrono::microseconds;
    // A timer that is always due would leave no turn to anything else.
    const microseconds interval = std::max(asked, std::chrono::milliseconds(1));
    const auto slack =
        std::clamp<microseconds>(interval / 10, microseconds(1), std::chrono::milliseconds(250));
    native_ = native.startTimer(interval, slack, [this] { tick(); });
    return native_ != nullptr;
  }

  void invalidate() override;

  // Ends the ticks. Loop's thread only.
  void end() {
    if (native_) native_->end();
    native_.reset();
  }

 private:
  void tick() {
    const auto self = shared_from_this();  // the task may release the timer
    if (valid_) dropExceptions([this] { task_(*this); });
  }

  const std::weak_ptr<ThreadLoop> loop_;
  const RunLoop::TimerTask task_;
  std::atomic<bool> valid_{true};
  std::shared_ptr<NativeTimer> native_;
};

// One run loop, shared with the timers and tasks that outlive its thread.
class ThreadLoop final : public RunLoop, public std::enable_shared_from_this<ThreadLoop> {
 public:
  explicit ThreadLoop(bool ofMainThread)
      : native_(makeNativeLoop(ofMainThread, [this] { tasks_.perform(*native_); })) {}
  ThreadLoop(const ThreadLoop&) = delete;
  ThreadLoop& operator=(const ThreadLoop&) = delete;
  ~ThreadLoop() override {
    for (const auto& timer : timers_) timer->end();
  }

  NativeLoop& native() { return *native_; }

  void run() override {
    while (!stopped_.exchange(false)) {
      if (native_->turn(true) == NativeLoop::Turn::failed) return;
    }
  }

  void stop() override {
    const int before = errno;  // unchanged for the code that a signal handler interrupts
    stopped_.store(true);
    native_->wake();
    errno = before;
  }

  [[nodiscard]] int descriptor() const override { return native_->descriptor(); }

  void dispatch() override {
    // The limit lets the host's own loop have its turn, however much is due here.
    constexpr int mostTurns = 100;
    native_->beginTurns();
    int turns = 0;
    while (turns < mostTurns && native_->turn(false) == NativeLoop::Turn::done) ++turns;
    if (turns == mostTurns) native_->wake();
    native_->endTurns();
  }

  void perform(Task task) override {
    tasks_.add(std::move(task));
    native_->wake();
  }

  std::shared_ptr<RunLoopTimer> scheduleTimer(std::chrono::milliseconds interval,
                                              TimerTask task) override {
    auto timer = std::make_shared<Timer>(weak_from_this(), std::move(task));
    if (!timer->start(*native_, interval)) throw std::runtime_error("no timer");
    timers_.push_back(timer);
    return timer;
  }

  void forget(const std::shared_ptr<Timer>& timer) {
    timer->end();
    std::erase(timers_, timer);
  }

 private:
  TaskQueue tasks_;
  std::unique_ptr<NativeLoop> native_;
  std::atomic<bool> stopped_{false};
  std::vector<std::shared_ptr<Timer>> timers_;
};

void Timer::invalidate() {
  if (!valid_.exchange(false)) return;
  const auto loop = loop_.lock();
  if (!loop) return;
  loop->perform([loop = loop.get(), self = shared_from_this()] { loop->forget(self); });
}

ThreadLoop& mainLoop() {
  // Detached threads and the system use it until the process ends.
  static NeverDestroyed loop([] { return std::make_shared<ThreadLoop>(true); });
  return **loop;
}

}  // namespace

RunLoop& RunLoop::main() { return mainLoop(); }

RunLoop& RunLoop::current() {
  if (isMainThread()) return main();
  thread_local const auto loop = std::make_shared<ThreadLoop>(false);
  return *loop;
}

NativeLoop& mainNativeLoop() { return mainLoop().native(); }

bool isOnMainThread() { return isMainThread(); }

}  // namespace qbdkr
