#pragma once

#include <cstddef>

namespace qbdkr::test {

// While it lives, lets one allocation of this thread fail, after so many others.
class FailingMemory {
 public:
  explicit FailingMemory(std::size_t others);
  FailingMemory(const FailingMemory&) = delete;
  FailingMemory& operator=(const FailingMemory&) = delete;
  ~FailingMemory();

  // Lets no further allocation fail.
  static void stop();

  // Tells whether one has failed.
  [[nodiscard]] static bool hasFailed();
};

}  // namespace qbdkr::test
