#pragma once

#include <chrono>
#include <functional>
#include <vector>

namespace qbdkr::bench {

using Clock = std::chrono::steady_clock;

// Prints what is wrong, and ends the program.
[[noreturn]] void fail(const char* what);

[[nodiscard]] double microseconds(Clock::duration duration);
[[nodiscard]] double median(std::vector<double> values);

// One line of the output: the time of the framework beside that of its reference.
struct Row {
  const char* name;
  const char* reference;
  double ours;    // microseconds
  double theirs;  // microseconds
  double limit;   // of ours / theirs

  [[nodiscard]] bool holds() const { return ours / theirs <= limit; }
};

void print(const Row& row);

// Stores the median times of one round of both bodies. Takes this many samples of each, of so many
// rounds. They alternate: other load on the machine falls on both.
Row measure(Row row, int samples, int rounds, const std::function<void()>& ours,
            const std::function<void()>& theirs, const std::function<void()>& between);

}  // namespace qbdkr::bench
