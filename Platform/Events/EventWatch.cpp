#include "Platform/Events/EventWatch.h"

#include "Platform/Events/NativeEventWatch.h"

namespace qbdkr {

std::optional<std::string> watchEvents(const EventWatch& watch) { return watchNativeEvents(watch); }

}  // namespace qbdkr
