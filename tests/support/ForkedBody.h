#pragma once

#include <functional>

namespace qbdkr::test {

// Runs a body in a forked child and returns the child's wait status. The exit status is 0 if the
// body returns true, 1 if it returns false, and 2 if it throws. No destructor outside the body runs
// in the child.
int runForked(const std::function<bool()>& body);

}  // namespace qbdkr::test
