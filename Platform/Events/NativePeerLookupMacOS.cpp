#include "Platform/Events/BundleIdentifier.h"
#include "Platform/Events/NativePeerLookup.h"
#include "Platform/Processes/RunningApplications.h"

namespace qbdkr {

// The system itself carries the events, to any process of the identifier.
PeerLookup lookUpNativePeer(std::string_view bundleID, std::chrono::milliseconds /*patience*/) {
  PeerLookup lookup;
  lookup.way = "Apple events";
  const auto processes = processesOfApplication(bundleID, "");
  if (processes && !processes->empty()) lookup.process = processes->front();
  return lookup;
}

bool isNativeIdentifier(std::string_view bundleID) { return isBundleIdentifier(bundleID); }

}  // namespace qbdkr
