#pragma once

#include <chrono>
#include <functional>

#include "Platform/Base/Descriptor.h"

namespace qbdkr {

// Notices that the machine was suspended and goes on. One thread.
class ResumeTimer {
 public:
  using Duration = std::chrono::nanoseconds;

  // Takes the function that returns the time for which the machine has been suspended in all.
  explicit ResumeTimer(std::function<Duration()> timeSuspended = systemTimeSuspended);

  // Returns a descriptor that can be read after a resume, and when the clock was set; -1 if the
  // system has none to spare.
  [[nodiscard]] int descriptor() const { return timer_.get(); }

  // Tells whether the machine was suspended since the last call, for 100 ms or more.
  [[nodiscard]] bool hasResumed();

  [[nodiscard]] static Duration systemTimeSuspended();

 private:
  void arm();

  std::function<Duration()> timeSuspended_;
  Descriptor timer_;
  Duration before_;
};

}  // namespace qbdkr
