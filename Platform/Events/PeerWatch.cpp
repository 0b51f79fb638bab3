#include "Platform/Events/PeerWatch.h"

#include "Platform/Events/NativePeerWatch.h"

namespace qbdkr {

std::unique_ptr<PeerWatch> PeerWatch::make(const std::string& bundleID) {
  return makeNativePeerWatch(bundleID);
}

}  // namespace qbdkr
