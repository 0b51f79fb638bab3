#pragma once

#include <string_view>

namespace qbdkr {

// A flag in the Info.plist of an application: false, 0 or "NO" keeps its events on the bus.
inline constexpr std::string_view directConnectionsKey = "Direct connections";
// So does this variable of the environment, if it is "0".
inline constexpr const char* directVariable = "QBDKR_DIRECT";

// Tells whether this process offers and takes direct connections. Found out once. Any thread.
[[nodiscard]] bool mayConnectDirectly();

}  // namespace qbdkr
