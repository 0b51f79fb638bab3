#pragma once

#include <cstddef>

#include "Platform/Loop/EventSourceLinux.h"

namespace qbdkr {

// Gives the allocator's free memory back to the system after a peak; otherwise the process keeps it
// until it ends. Belongs to the main run loop, and works when that is idle.
class MemoryRelief {
 public:
  // Schedules the relief after so many bytes were used. Small amounts are not worth it.
  void afterUseOf(std::size_t bytes);

 private:
  static int onQuiet(sd_event_source* source, void* unused);

  EventSource quiet_;
};

}  // namespace qbdkr
