#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Base/ForkSafeMutex.h"

namespace qbdkr {

// Lets one thread of the process be at an application bundle, to open it or to wait for another
// process that does. The other threads wait for that thread and take its outcome, so that they
// neither queue up for the bundle's lock nor start an application that ends at once over and over.
class Openings {
 public:
  using Clock = std::chrono::steady_clock;
  enum class Outcome { opened, failed, awaited };

  // Does the work and returns its outcome. If another thread is at this bundle, waits until the
  // deadline for that thread's outcome instead; nothing when it has not come by then. Work that
  // throws has failed for those that wait.
  std::optional<Outcome> join(const std::string& bundlePath, Clock::time_point deadline,
                              const std::function<Outcome()>& work);

 private:
  // A child that was forked has none of the threads that have a turn or wait for its end.
  struct Turn {
    const pid_t process = getpid();
    Outcome outcome = Outcome::failed;
    bool hasEnded = false;
    std::condition_variable_any ended;
  };
  class TurnEnd;

  ForkSafeMutex mutex_;
  std::map<std::string, std::shared_ptr<Turn>> turns_;  // those that have not ended
};

}  // namespace qbdkr
