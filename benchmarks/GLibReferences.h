#pragma once

#include <functional>
#include <memory>

#include "Call.h"

namespace qbdkr::bench {

// References of a waiting request that need GLib. Each returned function waits for one answer.

// The same call to the same peer, by g_dbus_connection_call_sync().
[[nodiscard]] std::function<void()> gdbusCall(const Call& call);

// As many bytes there and back as the messages of the call and of its answer have, over a
// SOCK_SEQPACKET pair to a process that only returns them.
[[nodiscard]] std::function<void()> packetExchange(const Call& call, const std::string& answer);

}  // namespace qbdkr::bench
