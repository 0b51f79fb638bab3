#pragma once

#include <memory>
#include <string>

#include "Platform/Events/PeerWatch.h"

namespace qbdkr {

// The system's part of PeerWatch::make().
[[nodiscard]] std::unique_ptr<PeerWatch> makeNativePeerWatch(const std::string& bundleID);

}  // namespace qbdkr
