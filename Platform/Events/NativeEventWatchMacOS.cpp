#include "Platform/Events/NativeEventWatch.h"

namespace qbdkr {

std::optional<std::string> watchNativeEvents(const EventWatch& /*watch*/) {
  return "this system does not let one process watch the events of others";
}

}  // namespace qbdkr
