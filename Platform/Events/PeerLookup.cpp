#include "Platform/Events/PeerLookup.h"

#include "Platform/Events/NativePeerLookup.h"

namespace qbdkr {

PeerLookup lookUpPeer(std::string_view bundleID, std::chrono::milliseconds patience) {
  return lookUpNativePeer(bundleID, patience);
}

bool isReachableIdentifier(std::string_view bundleID) { return isNativeIdentifier(bundleID); }

}  // namespace qbdkr
