#pragma once

#include <chrono>
#include <string_view>

#include "Platform/Events/PeerLookup.h"

namespace qbdkr {

// The system's part of lookUpPeer() and isReachableIdentifier().
[[nodiscard]] PeerLookup lookUpNativePeer(std::string_view bundleID,
                                          std::chrono::milliseconds patience);
[[nodiscard]] bool isNativeIdentifier(std::string_view bundleID);

}  // namespace qbdkr
