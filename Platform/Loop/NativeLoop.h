#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <utility>

namespace qbdkr {

// What RunLoop.cpp asks of the system's event loop.

// A repeating timer.
class NativeTimer : public std::enable_shared_from_this<NativeTimer> {
 public:
  explicit NativeTimer(std::function<void()> tick) : tick_(std::move(tick)) {}
  NativeTimer(const NativeTimer&) = delete;
  NativeTimer& operator=(const NativeTimer&) = delete;
  virtual ~NativeTimer() = default;

  // No further tick. Also from within one.
  virtual void end() = 0;

 protected:
  // Keeps itself while it ticks, whatever the tick lets go of.
  void tick() {
    const auto kept = shared_from_this();
    tick_();
  }

 private:
  const std::function<void()> tick_;
};

// The event loop of one thread. All calls are made on that thread, where none is said to be for
// any.
class NativeLoop {
 public:
  enum class Turn { done, nothingDue, failed };

  virtual ~NativeLoop() = default;

  // One of the next turns calls what was given for that. Any thread, and from a signal handler.
  virtual void wake() = 0;

  // Readable when a turn would do something.
  [[nodiscard]] virtual int descriptor() const = 0;

  // Does one thing that is due. Waits until there is one, if it is to.
  virtual Turn turn(bool waits) = 0;

  // Before and after the turns that somebody takes who watches the descriptor.
  virtual void beginTurns() {}
  virtual void endTurns() {}

  // Ticks every interval, and up to the slack later, so that the system can wake up once for
  // several timers. Ticks that were missed while the thread was busy are not made up for. Null when
  // there can be no timer.
  virtual std::shared_ptr<NativeTimer> startTimer(std::chrono::microseconds interval,
                                                  std::chrono::microseconds slack,
                                                  std::function<void()> tick) = 0;
};

// The loop of the main thread, from any thread, or of this one. Neither onWake nor a tick may
// throw. Throws std::runtime_error when there can be none.
std::unique_ptr<NativeLoop> makeNativeLoop(bool ofMainThread, std::function<void()> onWake);

[[nodiscard]] bool isMainThread();

// What RunLoop.cpp gives the platform: the loop below RunLoop::main().
NativeLoop& mainNativeLoop();

}  // namespace qbdkr
