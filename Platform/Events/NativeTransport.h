#pragma once

#include "Platform/Events/RPCTransport.h"

namespace qbdkr {

// Returns the system's transport of events between processes. It is made on first use and never
// destroyed.
[[nodiscard]] RPCTransport& nativeTransport();

}  // namespace qbdkr
