#pragma once

#include "Platform/Events/RPCTransport.h"

namespace qbdkr {

// The system's transport of events between processes, made on first use and never destroyed.
[[nodiscard]] RPCTransport& nativeTransport();

}  // namespace qbdkr
