#pragma once

#include <signal.h>

#include <initializer_list>

namespace qbdkr {

// Blocks signals on the calling thread for the life of the object. Threads and processes made
// meanwhile inherit that: the host's handlers do not run on them.
class BlockedSignals {
 public:
  static BlockedSignals all() { return BlockedSignals({}); }
  // Leaves faults to the host's crash handler.
  static BlockedSignals allButFaults() {
    return BlockedSignals({SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS});
  }

  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;
  ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  explicit BlockedSignals(std::initializer_list<int> exceptions) {
    sigset_t blocked;
    sigfillset(&blocked);
    for (const int exception : exceptions) sigdelset(&blocked, exception);
    pthread_sigmask(SIG_SETMASK, &blocked, &before_);
  }

  sigset_t before_{};
};

}  // namespace qbdkr
