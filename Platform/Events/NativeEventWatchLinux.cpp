#include "Platform/Events/DBus/EventMonitor.h"
#include "Platform/Events/NativeEventWatch.h"

namespace qbdkr {

std::optional<std::string> watchNativeEvents(const EventWatch& watch) {
  return EventMonitor(watch).run();
}

}  // namespace qbdkr
