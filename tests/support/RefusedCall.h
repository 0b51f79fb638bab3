#pragma once

namespace qbdkr::test {

// Make each further system call of this number fail with an error in the calling thread, or kill
// the process. Neither can be undone: call them in a child process.
void failCall(long number, int error);
void dieAtCall(long number);

// Runs a function at each further system call of this number in the calling thread, and lets the
// call succeed without making it. The function must not make such a call itself. Cannot be undone
// either.
void runAtCall(long number, void (*function)());

}  // namespace qbdkr::test
