#pragma once

#include <chrono>
#include <cstdlib>
#include <string>
#include <string_view>

namespace qbdkr::bench {

[[nodiscard]] inline long long nanosecondsNow() {
  return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Returns the nanoseconds since the time that a sender wrote into an event: the clock is the same
// for all processes.
[[nodiscard]] inline std::string timeOnTheWay(std::string_view sent) {
  return std::to_string(nanosecondsNow() - std::atoll(std::string(sent).c_str()));
}

}  // namespace qbdkr::bench
