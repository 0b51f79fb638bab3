#pragma once

#include <chrono>

namespace qbdkr::test {

// The times that a test waits for slow work on a busy machine. Reaching one is a failure.
inline constexpr std::chrono::seconds patience(60);
inline constexpr std::chrono::seconds longPatience(180);

}  // namespace qbdkr::test
