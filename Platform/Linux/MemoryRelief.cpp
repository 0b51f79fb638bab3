#include "Platform/Linux/MemoryRelief.h"

#include <malloc.h>

#include "Platform/Linux/MainEventLoop.h"

namespace qbdkr {
namespace {

constexpr std::size_t peak = std::size_t{256} << 10U;  // bytes

}  // namespace

void releaseFreeMemoryAfterUseOf(std::size_t bytes) {
  if (bytes >= peak) malloc_trim(0);
}

void MemoryRelief::afterUseOf(std::size_t bytes) {
  if (bytes < peak) return;
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
  malloc_trim(0);
  return 0;
}

}  // namespace qbdkr
