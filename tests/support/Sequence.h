#pragma once

#include <string>
#include <vector>

namespace qbdkr::test {

// TARGET COUNT THREADS [small]: each of so many threads sends that many events with the numbers
// from 1 on, in one row: posts, requests that wait, requests that were started, and now and then an
// event too large for a direct connection; small ones are the first two. Returns "ok", or the first
// number that failed and its status.
std::string sequence(const std::vector<std::string>& words);

// TARGET KEY BYTES: posts events with texts of so many bytes until one is refused, a few thousand
// at most. Returns "posted NUMBER status STATUS longest MILLISECONDS".
std::string postUntilRefused(const std::vector<std::string>& words);

}  // namespace qbdkr::test
