#pragma once

#include <string>
#include <vector>

namespace qbdkr::test {

// SECONDS THREADS: makes all calls of the communicator on that many threads, over and over, for
// that long. Each request that takes texts carries the thread's number and a growing count. Returns
// how often each method was sent: "failed 0 METHOD=COUNT METHOD=COUNT...".
std::string storm(const std::vector<std::string>& words);

// TARGET FIRST COUNT: counts once under each of that many keys, the numbers from FIRST on. If that
// fails, launches the helper agent and goes on with the next key. Returns "posted POSTED failed
// FAILED".
std::string count(const std::vector<std::string>& words);

}  // namespace qbdkr::test
