#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include <ClientComm/Export.h>

namespace qbdkr {

// How an application can be reached now, as it was found out without starting anything.
struct PeerLookup {
  // The way to all applications, for a message, as "unix:path=/run/user/1000/bus".
  std::string way;
  // Why that way cannot be used, for a message; empty if it can.
  std::string obstacle;
  // False if the way was not tried, as over a network. Then nothing is known.
  bool isTried = true;
  // The process that requests to the application reach; absent if they reach none.
  std::optional<pid_t> process;
  // Whether that is only the process of a proxy on the way.
  bool isHidden = false;
};

// Finds out how requests to the application of a bundle identifier would travel, and where to.
// Waits for the answer this long at most. Any thread.
[[nodiscard]] QBDKR_EXPORT PeerLookup lookUpPeer(std::string_view bundleID,
                                                 std::chrono::milliseconds patience);

// Tells whether an application can be reached by this bundle identifier at all, by its form.
[[nodiscard]] QBDKR_EXPORT bool isReachableIdentifier(std::string_view bundleID);

}  // namespace qbdkr
