#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>

#include <QBDKRProductClient/Supervision.h>

#include "Platform/Base/ForkSafeMutex.h"
#include "Platform/Events/PeerWatch.h"
#include "Platform/Workspace/RestartDamping.h"

namespace qbdkr {

// Watches the helper agent on a thread of its own: has it started at once when it is lost, or when
// the pause is over before which it may not be started again; checked when the machine was
// suspended; and ended if it does not answer pings.
class Supervisor {
 public:
  using Clock = PeerWatch::Clock;

  struct Actions {
    std::function<void()> recover;  // requests the start of a lost helper agent
    std::function<void()> check;    // requests a check
    std::function<void()> end;      // ends one that does not answer, and returns after its end
    // Returns the time before which it may not be started.
    std::function<std::optional<Clock::time_point>()> pausedUntil;

    // Tell what becomes of it: it can be reached; it was lost; the next check comes at that time.
    std::function<void()> found = [] {};
    std::function<void()> lost = [] {};
    std::function<void(Clock::time_point)> paused = [](Clock::time_point) {};
  };

  Supervisor(std::unique_ptr<PeerWatch> watch, Actions actions);

  // Sets how closely to watch. Any thread.
  void set(Supervision supervision);

  // Watches for as long as the process lives.
  void run();

  // Waits for the next event and deals with it.
  void turn();

  // Tell that a check, or the start-up, has ended: it could not start the helper agent, or found it
  // or started it. A check may find one that is gone already, because the bus tells each connection
  // of the process by itself; the start is repeated until the helper agent has appeared. Any
  // thread.
  void failed();
  void succeeded();

  // Returns the time of the next check if it was put off, and has not come. Any thread.
  [[nodiscard]] std::optional<Clock::time_point> pausedUntil() const;

 private:
  [[nodiscard]] Clock::time_point nextDeadline() const;
  void appeared();
  void vanished();
  void resumed();
  void takeMessages();
  void checkAt(Clock::time_point now, Clock::time_point due);
  void startPings();
  void checkIfDue();
  void pingIfDue();

  const std::unique_ptr<PeerWatch> watch_;
  const Actions actions_;

  // The thread's own.
  Supervision supervision_;
  RestartDamping damping_;
  Clock::time_point appearedAt_;
  std::optional<Clock::time_point> checkAt_;
  std::chrono::milliseconds repetition_{0};
  std::optional<Clock::time_point> pingedAt_;

  std::atomic<bool> isPresent_{false};
  std::atomic<Clock::time_point> pauseEnd_{Clock::time_point::min()};

  ForkSafeMutex mutex_;  // guards the messages of other threads
  bool hasFailed_ = false;
  bool hasSucceeded_ = false;
  std::optional<Supervision> newSupervision_;
};

}  // namespace qbdkr
