#pragma once

#include <string>

#include "Platform/Events/DBus/SdBus.h"
#include "Platform/Events/RPCEvent.h"

namespace qbdkr {

// Make a call of a method of the object for events. No process is started to take it. Null if that
// fails: memory is missing, or the bus would not take the name or a text.
[[nodiscard]] BusMessage newMethodCall(sd_bus* bus, const std::string& name, const char* interface,
                                       const char* member);
[[nodiscard]] BusMessage newEventCall(sd_bus* bus, const std::string& name, const RPCEvent& event);

}  // namespace qbdkr
