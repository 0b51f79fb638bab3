#pragma once

#include <cstddef>

namespace qbdkr::test {

// Lets one allocation of this thread fail, for as long as it lives: the one after so many others.
class FailingMemory {
 public:
  explicit FailingMemory(std::size_t others);
  FailingMemory(const FailingMemory&) = delete;
  FailingMemory& operator=(const FailingMemory&) = delete;
  ~FailingMemory();

  // Lets no further allocation fail.
  static void stop();

  // Whether one has failed.
  [[nodiscard]] static bool hasFailed();
};

}  // namespace qbdkr::test
