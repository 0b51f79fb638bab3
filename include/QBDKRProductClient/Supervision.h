#pragma once

#include <chrono>

namespace qbdkr {

// How closely a host keeps its helper agent alive, beyond the check every 60 s.
struct Supervision {
  // The time in which the helper agent must answer a ping of the bus. Its event loop answers by
  // itself, so one that is stopped or hangs does not. Pings are sent this often. 0: never. A helper
  // agent under a debugger does not answer either.
  std::chrono::milliseconds unresponsiveAfter{0};
};

}  // namespace qbdkr
