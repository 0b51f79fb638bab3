#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include <ClientComm/Export.h>

namespace qbdkr {

class RunLoop;

// A repeating timer. The run loop keeps it until it is invalidated.
class QBDKR_EXPORT RunLoopTimer {
 public:
  // Ends the ticks. If called on the timer's own thread, none begins afterwards; if called on
  // another one, a last tick may. Any thread; does not wait.
  virtual void invalidate() = 0;

 protected:
  virtual ~RunLoopTimer() = default;
};

// The event loop of one thread. RPC events arrive on the main thread's loop, and timers fire on the
// loop they were scheduled on, only while that loop runs. A host with a loop of its own (GLib, Qt,
// ...) watches descriptor() there for reading, and calls dispatch() when it becomes readable. The
// first use of a loop throws std::runtime_error if the loop cannot be made, as without free
// descriptors.
class QBDKR_EXPORT RunLoop {
 public:
  // A function that runs on the loop's thread; one of a timer gets that.
  using Task = std::function<void()>;
  using TimerTask = std::function<void(const RunLoopTimer&)>;

  // Returns the calling thread's loop. It is made on first use; the loop and its timers end with
  // the thread.
  static RunLoop& current();
  // Returns the main thread's loop, which is never destroyed. Any thread.
  static RunLoop& main();

  virtual ~RunLoop() = default;

  // Blocks, and runs the loop until stop() or until the system's loop fails. Loop's thread only. A
  // task, a timer or a delegate may run the loop again, for a modal dialog: events, timers and
  // tasks go on inside, and the loop sleeps while nothing is due.
  virtual void run() = 0;
  // Ends run(), now or when it is next entered. Of nested ones it ends the innermost. A loop that
  // calls dispatch() is not ended; end that one itself. Any thread, and from a signal handler,
  // which must not be the first to use the loop. Does not wait.
  virtual void stop() = 0;

  // Returns a descriptor that is readable if dispatch() has something to do. Owned by the loop. Any
  // thread; a host that only polls it asks for that of the main loop on the main thread, which lets
  // RPC events come on macOS.
  [[nodiscard]] virtual int descriptor() const = 0;
  // Does what is due, without blocking. If much is due it does a part of it, and the descriptor
  // stays readable. Loop's thread only; may be called from inside a task, a timer or a delegate.
  virtual void dispatch() = 0;

  // Calls a task on the loop's thread; tasks run in the order in which they were given. Any thread;
  // does not wait. An exception that leaves the task is dropped.
  virtual void perform(Task task) = 0;

  // Calls a task every interval (1 ms at least), the first time after one interval. A call may come
  // later by a tenth of the interval, 0.25 s at most; calls that were missed while the thread was
  // busy are dropped. Loop's thread only. An exception that leaves the task is dropped. Throws
  // std::runtime_error if the timer cannot be made.
  virtual std::shared_ptr<RunLoopTimer> scheduleTimer(std::chrono::milliseconds interval,
                                                      TimerTask task) = 0;
};

}  // namespace qbdkr
