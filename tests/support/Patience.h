#pragma once

#include <chrono>

namespace qbdkr::test {

// How long a test waits for something that may be slow on a busy machine. Reaching it is a failure.
inline constexpr std::chrono::seconds patience(60);
inline constexpr std::chrono::seconds longPatience(180);

}  // namespace qbdkr::test
