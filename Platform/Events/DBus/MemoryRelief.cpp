#include "Platform/Events/DBus/MemoryRelief.h"

#include "Platform/Base/FreeMemoryLinux.h"
#include "Platform/Loop/NativeLoopLinux.h"

namespace qbdkr {

void MemoryRelief::afterUseOf(std::size_t bytes) {
  if (bytes < memoryPeak) return;
  if (quiet_) {
    sd_event_source_set_enabled(quiet_.get(), SD_EVENT_ONESHOT);
    return;
  }
  sd_event_source* made = nullptr;
  if (sd_event_add_defer(mainEventLoop(), &made, onQuiet, nullptr) < 0) return;
  quiet_.reset(made);
  sd_event_source_set_priority(made, SD_EVENT_PRIORITY_IDLE);
}

int MemoryRelief::onQuiet(sd_event_source*, void*) {
  releaseFreeMemory();
  return 0;
}

}  // namespace qbdkr
