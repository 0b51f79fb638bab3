#pragma once

#include <CoreServices/CoreServices.h>

#include "Platform/Events/RPCTransport.h"

namespace qbdkr {

// Reads a reply, which may carry the error of the target's handler: for a wait, the Apple Event
// Manager's own status tells only of the delivery. Without a text a reply has no result; a text
// beyond the bounds of an event breaks the contract.
[[nodiscard]] RPCTransport::Answer readAnswer(const AEDesc& reply);

// Returns the return ID of an event or its reply, by which they are matched; 0 if it has none.
[[nodiscard]] AEReturnID returnIDOf(const AEDesc& event);

}  // namespace qbdkr
