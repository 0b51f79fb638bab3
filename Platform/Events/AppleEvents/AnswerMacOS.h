#pragma once

#include <CoreServices/CoreServices.h>

#include "Platform/Events/RPCTransport.h"

namespace qbdkr {

// Reads a reply that the Apple Event Manager gave for a wait. Without a text it has no result; a
// text beyond the bounds of an event breaks the contract.
[[nodiscard]] RPCTransport::Answer readAnswer(const AEDesc& reply);

// Reads a reply that came as an event. It may carry the error of the target's handler.
[[nodiscard]] RPCTransport::Answer readQueuedAnswer(const AEDesc& reply);

// Returns the return ID of an event or its reply, by which they are matched; 0 if it has none.
[[nodiscard]] AEReturnID returnIDOf(const AEDesc& event);

}  // namespace qbdkr
