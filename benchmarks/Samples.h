#pragma once

#include <chrono>
#include <functional>

namespace qbdkr::bench {

using Clock = std::chrono::steady_clock;

// Prints what is wrong, and ends the program.
[[noreturn]] void fail(const char* what);

[[nodiscard]] double microseconds(Clock::duration duration);

// Returns the microseconds of one call of a body.
[[nodiscard]] double timeOf(const std::function<void()>& body);

// Prints one sample, as "ours 12.5": the table is made of these lines.
void print(const char* side, double sample);

// Prints so many samples of both bodies, each the mean of so many rounds, in microseconds. They
// alternate: other load on the machine falls on both.
void alternate(
    int samples, int rounds, const std::function<void()>& ours, const std::function<void()>& theirs,
    const std::function<void()>& between = [] {});

}  // namespace qbdkr::bench
