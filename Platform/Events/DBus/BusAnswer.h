#pragma once

#include <systemd/sd-bus.h>

#include <cstddef>

#include "Platform/Events/RPCTransport.h"

namespace qbdkr {

// Returns the status of an error of the bus or of a peer.
[[nodiscard]] OSErr statusOfError(const sd_bus_error* error);

// Reads a reply, and stores the size of its text. A text beyond the bounds is refused like any
// other breach of the contract.
[[nodiscard]] RPCTransport::Answer readAnswer(sd_bus_message* reply, std::size_t& size);

}  // namespace qbdkr
