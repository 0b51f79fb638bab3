#pragma once

#include "Platform/Events/DBus/SdBus.h"

namespace qbdkr {

// Opens a connection to the session bus, as sd_bus_open_user() does, behind a proxy as well. Null
// with errno if there is no bus, or it refuses. Waits only behind a proxy, for its greeting, 2 s at
// most. Any thread.
[[nodiscard]] UniqueBus openSessionBus();

// Tells whether the process at the other end, the bus or its proxy, belongs to another namespace of
// processes, whose numbers say nothing here. Any thread; does not wait.
[[nodiscard]] bool leadsOutOfNamespace(sd_bus* bus);

}  // namespace qbdkr
