#pragma once

#include <cstddef>

#include "Platform/Loop/EventSourceLinux.h"

namespace qbdkr {

// Gives the allocator's free memory back to the system after a peak, which it would keep for the
// life of the process. Belongs to the main run loop, and works when that has nothing else to do.
class MemoryRelief {
 public:
  // So many bytes were needed a moment ago. Small amounts are worth no relief.
  void afterUseOf(std::size_t bytes);

 private:
  static int onQuiet(sd_event_source* source, void* unused);

  EventSource quiet_;
};

}  // namespace qbdkr
