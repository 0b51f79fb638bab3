#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "Platform/Base/Export.h"

namespace qbdkr {

class RunLoop;

// A repeating timer. The run loop keeps it until it is invalidated.
class QBDKR_EXPORT RunLoopTimer {
 public:
  // Ends the ticks: none begins after this returns on the timer's own thread. Any thread.
  virtual void invalidate() = 0;

 protected:
  virtual ~RunLoopTimer() = default;
};

// The event loop of one thread. RPC events arrive on the main thread's, timers fire on the one they
// were scheduled on, and only while that loop runs. A host that has a loop of its own (GLib, Qt,
// ...) watches descriptor() for reading there and calls dispatch() when it becomes readable.
// A loop that cannot be made, for want of descriptors, throws std::runtime_error on first use.
class QBDKR_EXPORT RunLoop {
 public:
  using Task = std::function<void()>;
  using TimerTask = std::function<void(const RunLoopTimer&)>;

  // The calling thread's loop; made on first use, ends with the thread, and so do its timers.
  static RunLoop& current();
  // The main thread's loop, from any thread; it is never destroyed.
  static RunLoop& main();

  virtual ~RunLoop() = default;

  // Runs until stop(). Only on the loop's thread, not from inside one of its own callbacks.
  virtual void run() = 0;
  // Ends run(), now or when it is next entered. Any thread, and from a signal handler, which must
  // not be the first to use the loop.
  virtual void stop() = 0;

  // A descriptor that is readable when dispatch() has something to do. Owned by the loop.
  [[nodiscard]] virtual int descriptor() const = 0;
  // Does what is due, without blocking; a part of it when there is much, and the descriptor stays
  // readable then. Only on the loop's thread.
  virtual void dispatch() = 0;

  // Calls a task on the loop's thread, in the order in which they were given. Any thread.
  virtual void perform(Task task) = 0;

  // Calls a task every interval (1 ms at least), the first time after one interval. Only on the
  // loop's thread. An exception that leaves a task is dropped. Throws std::runtime_error when there
  // can be no timer.
  virtual std::shared_ptr<RunLoopTimer> scheduleTimer(std::chrono::milliseconds interval,
                                                      TimerTask task) = 0;
};

}  // namespace qbdkr
