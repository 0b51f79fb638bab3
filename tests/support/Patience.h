#pragma once

#include <chrono>

namespace qbdkr::test {

// The times that a test waits for slow work on a busy machine. Reaching one is a failure.
inline constexpr std::chrono::seconds patience(60);
inline constexpr std::chrono::seconds longPatience(180);

// The time that counts as at once: longer than a busy machine takes, shorter than any time-out of
// the bus library.
inline constexpr std::chrono::seconds soon(20);

}  // namespace qbdkr::test
