#pragma once

#include <string>
#include <vector>

namespace qbdkr::test {

// TARGET FILE INTERVAL POSTS: makes a request every INTERVAL microseconds until endLoad(), POSTS
// posts to one that asks. Each carries a number, from 1 on. Appends a line to FILE for each that is
// over:
//   answered NUMBER TIME PROCESS VERSION   by that process of the helper agent
//   taken NUMBER NUMBER ...                posts that a process has taken: it answered before the
//                                          first of them and after a flush() that returned 0
//   failed NUMBER STATUS                   or "failed flush STATUS"
// A post without a line may have been taken or not. TIME is that of the answer, in microseconds of
// the steady clock.
std::string load(const std::vector<std::string>& words);

// Ends the load after its next request.
void endLoad();

}  // namespace qbdkr::test
