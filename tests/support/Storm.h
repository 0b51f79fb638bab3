#pragma once

#include <string>
#include <vector>

namespace qbdkr::test {

// SECONDS THREADS: that many threads make all calls of the communicator, over and over, for that
// long. Each request that takes texts carries the thread's number and a count that only grows.
// Gives, for each method, how often it was sent: "failed 0 METHOD=COUNT METHOD=COUNT...".
std::string storm(const std::vector<std::string>& words);

// TARGET FIRST COUNT: counts once under each of that many keys, which are the numbers from FIRST
// on; where the helper agent is gone, launches it and goes on with the next one. Gives "posted
// POSTED failed FAILED".
std::string count(const std::vector<std::string>& words);

}  // namespace qbdkr::test
