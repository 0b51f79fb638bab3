#pragma once

#include <chrono>

namespace qbdkr::test {

// The times that a test waits for slow work on a busy machine. Reaching one is a failure.
inline constexpr std::chrono::seconds patience(60);
inline constexpr std::chrono::seconds longPatience(180);

// The time that counts as at once: longer than a busy machine takes, shorter than any time-out of
// the bus library.
inline constexpr std::chrono::seconds soon(20);

// The time without an answer of any helper agent after which a host would seem to hang, on a busy
// machine too.
inline constexpr std::chrono::seconds longestGap(3);

}  // namespace qbdkr::test
