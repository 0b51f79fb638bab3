#pragma once

#include <string>

namespace qbdkr::test {

// Says what a session bus of a test refuses; empty for nothing.
struct BusPolicy {
  std::string deniedDestination = {};
  std::string deniedInterface = {};
};

}  // namespace qbdkr::test
