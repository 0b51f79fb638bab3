#pragma once

#include "Platform/Events/DBus/SdBus.h"

namespace qbdkr {

// Opens a connection to the session bus, as sd_bus_open_user() does, behind a proxy as well. Null
// with errno if there is no bus, or it refuses. Waits only behind a proxy, for its greeting, 2 s at
// most. Any thread.
[[nodiscard]] UniqueBus openSessionBus();

// Opens a connection to the bus of this user, which all sessions share and the service manager is
// on: the socket "bus" in XDG_RUNTIME_DIR, whatever the session bus is. Null with errno if that is
// not set. Any thread; does not wait.
[[nodiscard]] UniqueBus openUserBus();

// Tells whether the process at the other end is a proxy. Any thread; does not wait.
[[nodiscard]] bool leadsToProxy(sd_bus* bus);

// Tells whether the process at the other end, the bus or its proxy, belongs to another namespace of
// processes, whose numbers say nothing here. Any thread; does not wait.
[[nodiscard]] bool leadsOutOfNamespace(sd_bus* bus);

}  // namespace qbdkr
