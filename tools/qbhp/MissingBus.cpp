#include "tools/qbhp/MissingBus.h"

#include <chrono>

#include "Platform/Events/PeerLookup.h"

namespace qbdkr::tool {

std::optional<std::string> missingBus() {
  constexpr std::chrono::milliseconds patience(900);
  const auto lookup = lookUpPeer("", patience);
  if (lookup.obstacle.empty()) return std::nullopt;
  const std::string bus = lookup.way.empty() ? "the session bus" : "the bus " + lookup.way;
  return bus + " cannot be reached: " + lookup.obstacle +
         ". Run this in the session of the application, or set DBUS_SESSION_BUS_ADDRESS to the"
         " address of the bus there";
}

}  // namespace qbdkr::tool
