#include "ProductClient/DetachedThread.h"

#include <pthread.h>
#include <signal.h>

#include <system_error>
#include <thread>
#include <utility>

namespace qbdkr {
namespace {

// A thread inherits the signals that its maker has blocked: the host's handlers do not run on it.
class BlockedSignals {
 public:
  BlockedSignals() {
    sigset_t all;
    sigfillset(&all);
    // A fault stays a matter of the host's crash handler.
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS}) {
      sigdelset(&all, fault);
    }
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;
  ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

}  // namespace

bool detachNewThread(std::function<void()> body) {
  const BlockedSignals blocked;
  try {
    std::thread([body = std::move(body)] {
      try {
        body();
      } catch (...) {  // a failed check must not end the host; the next tick checks again
      }
    }).detach();
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

}  // namespace qbdkr
