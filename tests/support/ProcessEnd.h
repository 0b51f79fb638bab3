#pragma once

#include <sys/types.h>

#include <chrono>

#include "Platform/Base/Descriptor.h"

namespace qbdkr::test {

// Waits for the end of any process, a child or not. Make it while the process is sure to live.
class ProcessEnd {
 public:
  explicit ProcessEnd(pid_t process);
  [[nodiscard]] bool hasCome() const { return comesWithin(std::chrono::milliseconds(0)); }
  [[nodiscard]] bool comesWithin(std::chrono::milliseconds time) const;

 private:
  Descriptor descriptor_;
};

}  // namespace qbdkr::test
