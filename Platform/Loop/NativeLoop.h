#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <utility>

namespace qbdkr {

// The system's event loop, as RunLoop.cpp needs it.

// A repeating timer.
class NativeTimer : public std::enable_shared_from_this<NativeTimer> {
 public:
  explicit NativeTimer(std::function<void()> tick) : tick_(std::move(tick)) {}
  NativeTimer(const NativeTimer&) = delete;
  NativeTimer& operator=(const NativeTimer&) = delete;
  virtual ~NativeTimer() = default;

  // Ends the ticks. May be called from within one.
  virtual void end() = 0;

 protected:
  // Keeps the timer alive during the tick, which may release it.
  void tick() {
    const auto kept = shared_from_this();
    tick_();
  }

 private:
  const std::function<void()> tick_;
};

// The event loop of one thread. Call every member on that thread unless it says otherwise.
class NativeLoop {
 public:
  enum class Turn { done, nothingDue, failed };

  virtual ~NativeLoop() = default;

  // Makes the present turn or one of the next call onWake. Any thread, and from a signal handler.
  virtual void wake() = 0;

  // Returns a descriptor that is readable if a turn would do something. Any thread: on the main
  // thread it also lets events come to a loop that has taken no turn yet.
  [[nodiscard]] virtual int descriptor() = 0;

  // Does one thing that is due. If nothing is due, waits for it or returns nothingDue. onWake and
  // the ticks may take turns themselves, and may wait on the descriptor.
  virtual Turn turn(bool waits) = 0;

  // Called before and after the turns of a host that watches the descriptor.
  virtual void beginTurns() {}
  virtual void endTurns() {}

  // Starts a timer that ticks every interval, up to the slack later: the system can then wake up
  // once for several timers. Ticks that were missed while the thread was busy are dropped. Null if
  // the timer cannot be made.
  virtual std::shared_ptr<NativeTimer> startTimer(std::chrono::microseconds interval,
                                                  std::chrono::microseconds slack,
                                                  std::function<void()> tick) = 0;
};

// Makes the loop of the main thread, from any thread, or that of the calling thread. Neither onWake
// nor a tick may throw. Throws std::runtime_error if the loop cannot be made.
std::unique_ptr<NativeLoop> makeNativeLoop(bool ofMainThread, std::function<void()> onWake);

[[nodiscard]] bool isMainThread();

// Returns the loop below RunLoop::main(). RunLoop.cpp defines it, for the rest of the platform.
NativeLoop& mainNativeLoop();

}  // namespace qbdkr
