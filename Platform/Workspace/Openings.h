#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "Platform/Base/ForkSafeMutex.h"

namespace qbdkr {

// Lets one thread of the process at a time open an application bundle. The other threads wait for
// that thread and take its outcome: they neither queue up for the bundle's lock nor restart, over
// and over, an application that ends at once.
class Openings {
 public:
  using Clock = std::chrono::steady_clock;

  // Does the work and returns its outcome. If another thread is at work on this bundle, waits until
  // the deadline for its outcome instead; false if that has not come by then. To the threads that
  // wait, work that throws has failed.
  bool join(const std::string& bundlePath, Clock::time_point deadline,
            const std::function<bool()>& work);

 private:
  // One thread's work on a bundle, in one process: a forked child has none of the threads that have
  // a turn or wait for its end.
  struct Turn {
    const pid_t process = getpid();
    bool outcome = false;
    bool hasEnded = false;
    std::condition_variable_any ended;
  };
  class TurnEnd;

  ForkSafeMutex mutex_;
  std::map<std::string, std::shared_ptr<Turn>> turns_;  // those that have not ended
};

}  // namespace qbdkr
