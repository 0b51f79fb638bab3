#pragma once

#include <signal.h>

namespace qbdkr::tool {

// Holds back the signals that end the tool, until its destruction: its directory is removed first.
class HeldSignals {
 public:
  HeldSignals() {
    // Macros on some systems, which must not be qualified.
    sigemptyset(&held_);
    sigaddset(&held_, SIGCHLD);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
      struct sigaction action {};
      ::sigaction(number, nullptr, &action);
      if (action.sa_handler != SIG_IGN) sigaddset(&held_, number);  // as nohup ignores it
    }
    ::sigprocmask(SIG_BLOCK, &held_, &before_);
    ::signal(SIGCHLD, [](int) {});  // one that is ignored need not come
  }
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;
  ~HeldSignals() { ::sigprocmask(SIG_SETMASK, &before_, nullptr); }

  [[nodiscard]] const sigset_t& before() const { return before_; }
  [[nodiscard]] int next() const {
    int number = 0;
    while (::sigwait(&held_, &number) != 0) {
    }
    return number;
  }

 private:
  sigset_t held_{};
  sigset_t before_{};
};

}  // namespace qbdkr::tool
