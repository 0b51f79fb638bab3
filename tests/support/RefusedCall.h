#pragma once

namespace qbdkr::test {

// From here on, each system call of this number fails with an error in the calling thread, or ends
// the process. It stays so; a test refuses calls in a process of its own.
void failCall(long number, int error);
void dieAtCall(long number);

}  // namespace qbdkr::test
