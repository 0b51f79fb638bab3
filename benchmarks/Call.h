#pragma once

#include <string>
#include <vector>

namespace qbdkr::bench {

// An event to a peer, as each side sends it.
struct Call {
  std::string peer;
  std::string className;
  std::string method;
  std::vector<std::string> arguments;
};

}  // namespace qbdkr::bench
