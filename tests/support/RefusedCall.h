#pragma once

namespace qbdkr::test {

// Make each further system call of this number fail with an error in the calling thread, or kill
// the process. Neither can be undone: call them in a child process.
void failCall(long number, int error);
void dieAtCall(long number);

}  // namespace qbdkr::test
